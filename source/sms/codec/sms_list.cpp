// Messages as a modem lists them; see sms_list.h.
#include "sms_list.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr struct {
  char character;
  const char *piece;
} kEscapes[] = {
    {'"', "&quot;"}, {'\'', "&#39;"}, {'\\', "&#92;"}, {'<', "&#60;"}, {'>', "&#62;"},
    {'%', "&#37;"},  {'&', "&#38;"},  {'\r', "<br>"},  {'\n', "<br>"},
};

/* Each byte of a message takes 6 at most. */
static_assert(6 * (SHORTMSG_TEXT_SIZE - 1) < sizeof(ShortMsgEntry::content), "any message fits");
static_assert(SHORTMSG_NUMBER_SIZE <= sizeof(ShortMsgEntry::number), "any number fits");

const char *Piece(char character) {
  for (const auto &one : kEscapes)
    if (one.character == character) return one.piece;
  return nullptr;
}

/* CR LF and LF CR are one line end. */
bool IsLineEndPair(const char *at) {
  return (at[0] == '\r' && at[1] == '\n') || (at[0] == '\n' && at[1] == '\r');
}

/* Quotes, "\", "<", ">", "%" and "&" as entities, a line end as "<br>". */
void Escape(const char *text, char *escaped) {
  for (; *text != '\0'; ++text) {
    const char *piece = Piece(*text);
    if (piece == nullptr)
      *escaped++ = *text;
    else
      escaped = stpcpy(escaped, piece);
    if (IsLineEndPair(text)) ++text;
  }
  *escaped = '\0';
}

/* Where the PDU begins: behind the line that has the third comma. Its length, which follows that
   comma, is not needed. Lines end in CR LF, or in LF, which may be doubled by who joined them. */
const char *PduOf(const char *text) {
  for (int comma = 0; comma < 3; ++comma) {
    text = strpbrk(text, ",\n");
    if (text == nullptr || *text == '\n') return nullptr;
    ++text;
  }
  text = strchr(text, '\n');
  if (text == nullptr) return nullptr;
  text += text[1] == '\n' ? 2 : 1;
  return HexValue(text[0]) < 0 ? nullptr : text;
}

}  // namespace

int ShortMsgParseEntry(const char *text, ShortMsgEntry *entry) {
  static constexpr char kPrefix[] = "+CMGL:";
  ShortMsgParam record = {};
  text = strstr(text, kPrefix);
  if (text == nullptr) return -1;
  text += strlen(kPrefix);
  const char *pdu = PduOf(text);
  if (pdu == nullptr || sscanf(text, "%hd,%hd", &record.index, &record.stat) != 2) return -1;
  *entry = {};
  SHORTMSG_DecodePdu(pdu, &record, entry);
  entry->index = record.index;
  entry->stat = record.stat;
  memcpy(entry->number, record.TPA, sizeof record.TPA);
  Escape(short_msg_decoded.text, entry->content);
  strcpy(entry->time, " "); /* of a message that has no time stamp: it is not a received one */
  if (record.TP_SCTS[0] != '\0') FormatScts(record.TP_SCTS, entry->time);
  return 0;
}
