// The PDU codec on a text of 160 characters, beside libgammu's and beside the plainest loop over
// the same hexadecimal digits. Without the trace, which asks for its switch each time.
#include <benchmark/benchmark.h>
#include <gammu.h>

#include <cstdlib>
#include <cstring>

#include "sms_pdu.h"

namespace {

const char kText[] =
    "The quick brown fox jumps over the lazy dog, then it rests: (1) it is 160 characters long (2) "
    "or so they say, with an @ and a $ in it, and it ends here, 73 now!";
static_assert(sizeof kText - 1 == 160, "none of its characters needs an escape");
constexpr char kCentre[] = "8613800100500", kNumber[] = "8613912345678";

/* ---- encoding ---- */

ShortMsgParam Record() {
  ShortMsgParam record = {};
  memcpy(record.SCA, kCentre, sizeof kCentre);
  memcpy(record.TPA, kNumber, sizeof kNumber);
  memcpy(record.TP_UD, kText, sizeof kText);
  return record;
}

void EncodeOurs(benchmark::State &state) {
  ShortMsgParam record = Record();
  char pdu[SHORTMSG_PDU_SIZE];
  for (auto _ : state) {
    benchmark::DoNotOptimize(record);
    benchmark::DoNotOptimize(PduEncode(&record, pdu, nullptr));
    benchmark::ClobberMemory();
  }
}

void EncodeGammu(benchmark::State &state) {
  auto *message = static_cast<GSM_SMSMessage *>(calloc(1, sizeof(GSM_SMSMessage)));
  GSM_SetDefaultSMSData(message);
  EncodeUnicode(message->SMSC.Number, kCentre, strlen(kCentre));
  EncodeUnicode(message->Number, kNumber, strlen(kNumber));
  EncodeUnicode(message->Text, kText, strlen(kText));
  message->Length = static_cast<int>(strlen(kText));
  message->PDU = SMS_Submit;
  message->Coding = SMS_Coding_Default_No_Compression;
  message->UDH.Type = UDH_NoUDH;
  unsigned char frame[1024];
  char hex[2048];
  for (auto _ : state) {
    int length = 0;
    GSM_Error error = GSM_EncodeSMSFrame(nullptr, message, frame, PHONE_SMSSubmit, &length, TRUE);
    if (error != ERR_NONE || length < 140) {
      state.SkipWithError("libgammu does not encode");
      break;
    }
    /* The layout has the text behind its fixed fields. */
    EncodeHexBin(hex, frame, static_cast<size_t>(PHONE_SMSSubmit.Text + length));
    benchmark::ClobberMemory();
  }
  free(message);
}

struct Octets {
  uint8_t bytes[SHORTMSG_PDU_SIZE / 2];
  size_t count;
};

char *Pdu() {
  static char pdu[SHORTMSG_PDU_SIZE];
  ShortMsgParam record = Record();
  PduEncode(&record, pdu, nullptr);
  return pdu;
}

Octets PduOctets() {
  Octets octets;
  octets.count = static_cast<size_t>(HexToBytes(Pdu(), octets.bytes, strlen(Pdu())));
  return octets;
}

void EncodeHex(benchmark::State &state) {
  static const char kDigits[] = "0123456789ABCDEF";
  Octets octets = PduOctets();
  char text[SHORTMSG_PDU_SIZE];
  for (auto _ : state) {
    benchmark::DoNotOptimize(octets);
    for (size_t at = 0; at < octets.count; ++at) {
      text[2 * at] = kDigits[octets.bytes[at] >> 4];
      text[2 * at + 1] = kDigits[octets.bytes[at] & 15];
    }
    benchmark::DoNotOptimize(text);
    benchmark::ClobberMemory();
  }
}

/* ---- decoding: the same PDU, as a sent message ---- */

void DecodeOurs(benchmark::State &state) {
  const char *pdu = Pdu();
  ShortMsgParam record = {};
  ShortMsgEntry entry = {};
  char text[SHORTMSG_TEXT_SIZE];
  record.stat = SHORTMSG_SENT;
  for (auto _ : state) {
    benchmark::DoNotOptimize(pdu);
    benchmark::DoNotOptimize(PduDecode(pdu, &record, &entry, text));
    benchmark::ClobberMemory();
  }
  if (strcmp(text, kText) != 0) state.SkipWithError("the text did not come back");
}

void DecodeGammu(benchmark::State &state) {
  const char *pdu = Pdu();
  size_t digits = strlen(pdu);
  auto *message = static_cast<GSM_SMSMessage *>(calloc(1, sizeof(GSM_SMSMessage)));
  GSM_Debug_Info *debug = GSM_GetGlobalDebug();
  unsigned char frame[SHORTMSG_PDU_SIZE / 2];
  for (auto _ : state) {
    benchmark::DoNotOptimize(pdu);
    if (DecodeHexBin(frame, reinterpret_cast<const unsigned char *>(pdu), digits) == FALSE ||
        GSM_DecodePDUFrame(debug, message, frame, digits / 2, nullptr, TRUE) != ERR_NONE) {
      state.SkipWithError("libgammu does not decode");
      break;
    }
    benchmark::ClobberMemory();
  }
  if (strcmp(DecodeUnicodeString(message->Text), kText) != 0)
    state.SkipWithError("libgammu reads another text");
  free(message);
}

int Digit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : 0;
}

void DecodeHex(benchmark::State &state) {
  const char *pdu = Pdu();
  size_t count = strlen(pdu) / 2;
  uint8_t bytes[SHORTMSG_PDU_SIZE / 2];
  for (auto _ : state) {
    benchmark::DoNotOptimize(pdu);
    for (size_t at = 0; at < count; ++at)
      bytes[at] = static_cast<uint8_t>(Digit(pdu[2 * at]) << 4 | Digit(pdu[2 * at + 1]));
    benchmark::DoNotOptimize(bytes);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(EncodeOurs)->Name("encode/ours");
BENCHMARK(EncodeGammu)->Name("encode/gammu");
BENCHMARK(EncodeHex)->Name("encode/hex");
BENCHMARK(DecodeOurs)->Name("decode/ours");
BENCHMARK(DecodeGammu)->Name("decode/gammu");
BENCHMARK(DecodeHex)->Name("decode/hex");

}  // namespace

BENCHMARK_MAIN();
