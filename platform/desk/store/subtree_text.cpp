// The text of a subtree; see subtree_text.h. The leaves of each object are written while its rows
// are at hand, and what was written is put into order as a whole: rows are many, and in no cache
// when they are looked at again.
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
  /* the object whose leaves are gathered */
  size_t key_length, leaves_size;
  uint32_t leaf_order;          /* the length of theirs */
  std::vector<LeafText> leaves; /* by their places; `name` is NULL where there is none */
  size_t path_length;
  char path[kKeyMax + 1];
};

/* Makes room for the object's leaves. */
void TakeRoom(Writer *writer) {
  constexpr size_t kFirst = 4096;
  const size_t more = writer->leaves_size + writer->leaves.size() * (writer->path_length + 1);
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

/* Writes the leaves that were gathered, with a node for each run of them. */
void WriteLeaves(Writer *writer) {
  if (writer->leaves.empty()) return;
  TakeRoom(writer);
  char *const start = writer->text->text.get();
  char *out = start + writer->text->size;
  for (size_t place = 0; place < writer->leaves.size();) {
    const size_t first = place, at = static_cast<size_t>(out - start);
    for (; place < writer->leaves.size() && writer->leaves[place].name != nullptr; ++place) {
      out = PutText(out, writer->path, writer->path_length);
      out = PutLeaf(out, writer->leaves[place]);
      *out++ = AMS_SEPARATOR;
    }
    if (place > first)
      Append(writer, {static_cast<uint32_t>(first), writer->leaf_order},
             {at, static_cast<size_t>(out - start) - at});
    else
      ++place;
  }
  writer->text->size = static_cast<size_t>(out - start);
  writer->leaves.clear();
  writer->leaves_size = 0;
}

void Open(Writer *writer, const MDB_val &key) {
  writer->key_length = key.mv_size;
  writer->path_length = KeyToPath(static_cast<const uint8_t *>(key.mv_data) + writer->top_length,
                                  key.mv_size - writer->top_length, writer->path);
  writer->path[writer->path_length++] = '.';
}

/* What is no leaf of the object's, or at no place in it, cannot be. */
void Gather(Writer *writer, const MDB_val &key, const Record &record, NodeOrder order) {
  const uint8_t *name = static_cast<const uint8_t *>(key.mv_data) + writer->key_length;
  if (key.mv_size <= writer->key_length + 1 || *name != KEY_LEAF || order.place > UINT16_MAX)
    return;
  if (order.place >= writer->leaves.size()) writer->leaves.resize(order.place + 1);
  const size_t name_length = key.mv_size - writer->key_length - 1;
  writer->leaves[order.place] = {name + 1, record.value, name_length, record.length};
  writer->leaf_order = order.length;
  writer->leaves_size += name_length + record.length + 2;
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
  writer.top_length = writer.key_length = top.length;
  writer.text = text;
  const int result =
      TreeScan(txn, top, true, [&](const MDB_val &key, const Record &record, NodeOrder order) {
        if (RecordIsLeaf(record)) return Gather(&writer, key, record, order);
        WriteLeaves(&writer);
        Append(&writer, order, {});
        Open(&writer, key);
      });
  if (result != 0) return -1;
  WriteLeaves(&writer);
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
