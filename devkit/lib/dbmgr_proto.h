// What clients and the data-base manager say to each other: one synchronous message to
// "dbmgr:dbmgt" and its answer. Words are little-endian. Any thread.
//
// Request: u32 command (APPT_CMD_...), u16 length of the url, url, u32 length of the value, value.
// Answer:  text, i32 result, u8 kind of text: what is long need not move to make room for the rest.
// kDbmgrCheck with a request is answered at once with what would refuse it before it is sent on.
// kDbmgrWaits with a url is answered at once with the names of the modules that a request for
// it, or for what is above or below it, waits for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

constexpr char kDbmgrName[] = "dbmgr:dbmgt";
constexpr uint32_t kDbmgrRequest = 0x110000;
constexpr uint32_t kDbmgrWaits = 0x110001;
constexpr uint32_t kDbmgrCheck = 0x110002;

/* "set": `url` is the object and `value` its leaves, "a=1\x03b=2". All others: `url` alone. */
struct DbmgrRequest {
  uint32_t command = 0;
  std::string url, value;
};

enum class DbmgrText : uint8_t {
  NONE = 0,
  TEXT = 1, /* the store's text form; of a refusal: one line that says why and what to do */
  LEAF = 2, /* of one leaf: "get" the bare value, "attr" its name=value and attributes */
};

struct DbmgrAnswer {
  int32_t result = 0; /* 0 or more: done; -1: refused */
  DbmgrText kind = DbmgrText::NONE;
  std::string text;
};

std::string DbmgrPutRequest(const DbmgrRequest &request);

constexpr size_t kDbmgrAnswerTail = 5; /* bytes behind an answer's text */

/* What no message holds becomes a refusal that says so. */
void DbmgrFit(DbmgrAnswer *answer);

/* `answer`: one that fits. */
std::string DbmgrPutAnswer(DbmgrAnswer answer);

/* 0, or -1: the bytes are no request (lengths that do not fit, bytes left over, a NUL in a text) or
   no answer (shorter than its tail, no such kind), and what they should have become is anything. */
int DbmgrGetRequest(const void *data, size_t length, DbmgrRequest *request);
int DbmgrGetAnswer(std::string bytes, DbmgrAnswer *answer);
