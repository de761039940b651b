// The text of a subtree; see subtree_text.h. The leaves of each object are written while its row is
// at hand, and what was written is put into order as a whole: rows are many, and in no cache when
// they are looked at again.
#include "subtree_text.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "scan.h"
#include "text.h"

namespace {

struct Writer {
  size_t top_length; /* of the keys: that the text leaves out */
  SubtreeText *text;
  size_t room;
  /* of each object, of each array, and of the leaves that stand side by side in one: where it
     stands, and what is written of it, of an object or array nothing */
  std::vector<NodeOrder> nodes;
  std::vector<SubtreeText::Run> runs;
  uint32_t next; /* the place behind the leaf that was written last */
  size_t path_length;
  char path[kKeyMax + 1];
};

constexpr uint32_t kNoPlace = UINT32_MAX;

/* Makes room for more of the text. */
void TakeRoom(Writer *writer, size_t more) {
  constexpr size_t kFirst = 4096;
  if (writer->room - writer->text->size >= more) return;
  const size_t room = std::max(2 * writer->room, writer->text->size + more + kFirst);
  void *text = realloc(writer->text->text.get(), room);
  if (text == nullptr) throw std::bad_alloc();
  (void)writer->text->text.release();
  writer->text->text.reset(static_cast<char *>(text));
  writer->room = room;
}

void Append(Writer *writer, NodeOrder node, SubtreeText::Run run) {
  writer->nodes.push_back(node);
  writer->runs.push_back(run);
}

/* Writes a leaf, as a node of its own unless it stands right behind the one before. */
void WriteLeaf(Writer *writer, const Record &leaf, NodeOrder order) {
  const size_t at = writer->text->size;
  const size_t length = writer->path_length + leaf.name_length + 1 + leaf.length + 1;
  TakeRoom(writer, length);
  char *out = PutText(writer->text->text.get() + at, writer->path, writer->path_length);
  out = PutLeaf(out, {leaf.name, leaf.value, leaf.name_length, leaf.length});
  *out = AMS_SEPARATOR;
  writer->text->size += length;
  if (order.place == writer->next)
    writer->runs.back().length += length;
  else
    Append(writer, order, {at, length});
  writer->next = order.place + 1;
}

void Open(Writer *writer, const MDB_val &key) {
  writer->path_length = KeyToPath(static_cast<const uint8_t *>(key.mv_data) + writer->top_length,
                                  key.mv_size - writer->top_length, writer->path);
  writer->path[writer->path_length++] = '.';
  writer->next = kNoPlace;
}

/* The runs in the file's order; of those that follow one another in the text, one. */
void JoinRuns(const Writer &writer, std::vector<SubtreeText::Run> *runs) {
  std::vector<uint32_t> order;
  FileOrder(writer.nodes, &order);
  for (uint32_t node : order) {
    const SubtreeText::Run &run = writer.runs[node];
    if (run.length == 0) continue;
    if (!runs->empty() && runs->back().at + runs->back().length == run.at)
      runs->back().length += run.length;
    else
      runs->push_back(run);
  }
}

}  // namespace

int SubtreeRead(MDB_txn *txn, const Key &top, SubtreeText *text) {
  Writer writer = {};
  writer.top_length = top.length;
  writer.text = text;
  writer.next = kNoPlace;
  const int result =
      TreeScan(txn, top, true, [&](const MDB_val &key, const Record &record, NodeOrder order) {
        if (RecordIsLeaf(record)) return WriteLeaf(&writer, record, order);
        Append(&writer, order, {});
        Open(&writer, key);
      });
  if (result != 0) return -1;
  JoinRuns(writer, &text->runs);
  return 0;
}

void SubtreePut(const SubtreeText &text, char *out) {
  for (const SubtreeText::Run &run : text.runs) {
    memcpy(out, text.text.get() + run.at, run.length);
    out += run.length;
  }
  if (text.size != 0) --out;
  *out = '\0';
}
