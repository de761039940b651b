// Writing the tree as a data-model file. An instance is written as what differs from its template,
// so that loading the file gives the same tree.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "ams_print.h"
#include "ams_store.h"
#include "attributes.h"
#include "file_form.h"
#include "found.h"
#include "scan.h"
#include "tree.h"

namespace {

std::atomic<int> wrap_margin{72}; /* column; 0: start tags stay on one line */

struct Element {
  std::string name;
  std::string attributes; /* each as ` name="value"` */
  bool written;           /* its start tag, up to the ">" */
  bool has_children;
};

struct Saver {
  MDB_txn *txn;
  bool pretty;
  int margin;
  std::string out;
  std::vector<Element> open; /* from the root down; not all of them are written yet */
};

/* ---- text ---- */

/* What a parser would change on the way back is written as a number. */
void AppendEscaped(std::string *out, std::string_view text, bool attribute) {
  for (char c : text) {
    unsigned char byte = static_cast<unsigned char>(c);
    if (c == '&')
      *out += "&amp;";
    else if (c == '<')
      *out += "&lt;";
    else if (c == '>')
      *out += "&gt;";
    else if ((c == '"' && attribute) || (byte < ' ' && (attribute || (c != '\n' && c != '\t'))))
      *out += "&#" + std::to_string(byte) + ";";
    else
      *out += c;
  }
}

void AppendAttribute(std::string *out, std::string_view name, std::string_view value) {
  out->append(" ").append(name).append("=\"");
  AppendEscaped(out, value, true);
  *out += '"';
}

void NewLine(Saver *saver, size_t depth) {
  if (saver->pretty) saver->out.append("\n").append(depth * 2, ' ');
}

/* Puts each attribute on a line of its own. The blanks inside values are left alone. */
std::string Wrapped(const std::string &attributes, size_t depth) {
  std::string lines;
  bool quoted = false;
  for (char c : attributes) {
    if (c == '"') quoted = !quoted;
    if (c == ' ' && !quoted)
      lines.append("\n").append(depth * 2 + 4, ' ');
    else
      lines += c;
  }
  return lines;
}

void StartTag(Saver *saver, size_t depth) {
  Element &element = saver->open[depth];
  size_t width = depth * 2 + element.name.size() + element.attributes.size() + 2;
  bool wrap = saver->pretty && saver->margin > 0 && width > static_cast<size_t>(saver->margin);
  NewLine(saver, depth);
  saver->out.append("<").append(element.name);
  saver->out += wrap ? Wrapped(element.attributes, depth) : element.attributes;
  element.written = true;
}

void WriteStartTags(Saver *saver) {
  for (size_t depth = 0; depth < saver->open.size(); ++depth) {
    if (saver->open[depth].written) continue;
    if (depth > 0 && !saver->open[depth - 1].has_children) {
      saver->open[depth - 1].has_children = true;
      saver->out += '>';
    }
    StartTag(saver, depth);
  }
}

void Close(Saver *saver, size_t depth) {
  while (saver->open.size() > depth) {
    Element element = std::move(saver->open.back());
    saver->open.pop_back();
    if (!element.written) continue; /* nothing in it differs from the template */
    if (element.has_children) {
      NewLine(saver, saver->open.size());
      saver->out.append("</").append(element.name).append(">");
    } else {
      saver->out += "/>";
    }
  }
}

void CloseLeaf(Saver *saver, std::string_view value) {
  if (value.empty()) return Close(saver, saver->open.size() - 1);
  saver->out += '>';
  AppendEscaped(&saver->out, value, false);
  saver->out.append("</").append(saver->open.back().name).append(">");
  saver->open.pop_back();
}

/* ---- rows ---- */

/* Behind the last separator of the key: of a leaf's, its object's. */
size_t LastSeparator(const Found &row) {
  size_t at = row.key_length;
  while (at > 0 && row.key[at - 1] > KEY_NODE) --at;
  return at;
}

size_t Depth(const Found &row) {
  size_t depth = RecordIsLeaf(row.record) ? 1 : 0;
  for (size_t at = 0; at < row.key_length; ++at) depth += row.key[at] <= KEY_NODE ? 1 : 0;
  return depth;
}

bool InInstance(const Found &row) {
  for (size_t at = 0; at < row.key_length; ++at)
    if (row.key[at] > KEY_DIGITS && row.key[at] < ' ') return true;
  return false;
}

bool OfTemplate(const Found &row) { return memchr(row.key, KEY_EACH, row.key_length) != nullptr; }

/* The row that this row of an instance was made from. False when it is in no instance. */
bool Counterpart(Saver *saver, const Found &row, Key *key, Record *record) {
  if (!InInstance(row)) return false;
  KeyGeneral(row.key, row.key_length, key);
  if (RecordIsLeaf(row.record) && KeyAppendName(key, KEY_LEAF, LeafName(row.record)) != 0)
    return false;
  return TreeFind(saver->txn, *key, record) == 0;
}

std::string NotifyOf(Saver *saver, const Found &row) {
  Key key;
  if (FoundKey(row, &key) != 0) return "0";
  return TreeNotify(saver->txn, OfTemplate(row) ? KeyMarked(KEY_TEMPLATE, key) : key, row.record);
}

std::string AttributesOf(Saver *saver, const Found &row, const std::string &name, bool implied) {
  std::string_view set, attribute, value;
  std::string text;
  if (name == kInstanceElement) {
    size_t last = LastSeparator(row);
    AppendAttribute(&text, kIdAttribute,
                    std::to_string(KeyNumber(row.key + last, row.key_length - last)));
  }
  if (implied || TreeAttributes(saver->txn, row.record.head.attributes, &set) != 0) return text;
  bool is_row = name == kInstanceElement || name == kTemplateElement;
  while (AttributeNext(&set, &attribute, &value))
    if (!is_row || attribute != kTypeAttribute) AppendAttribute(&text, attribute, value);
  return text;
}

std::string NameOf(const Found &row) {
  if (RecordIsLeaf(row.record)) return std::string(LeafName(row.record));
  size_t last = LastSeparator(row);
  std::string name(reinterpret_cast<const char *>(row.key) + last, row.key_length - last);
  if (name[0] == KEY_ROOT) return kRootName;
  if (name[0] == KEY_EACH) return kTemplateElement;
  return static_cast<uint8_t>(name[0]) < ' ' ? kInstanceElement : name;
}

/* Writes one row, or lets it wait for something below it that has to be written. */
void SaveRow(Saver *saver, const Found &row) {
  Key key;
  Record shape;
  bool laid = Counterpart(saver, row, &key, &shape);
  std::string name = NameOf(row), notify = NotifyOf(saver, row), shape_notify = "0";
  if (laid) shape_notify = TreeNotify(saver->txn, key, shape);
  bool same_set = laid && shape.head.attributes == row.record.head.attributes;
  Element element = {name, AttributesOf(saver, row, name, same_set), false, false};
  if (notify != shape_notify) AppendAttribute(&element.attributes, kNotifyAttribute, notify);
  std::string_view value;
  bool differs = !laid || !same_set || notify != shape_notify || name == kInstanceElement;
  if (RecordIsLeaf(row.record)) {
    value = {row.record.value, row.record.length};
    differs = differs || value != std::string_view(shape.value, shape.length);
  } else if (row.record.head.kind == KIND_ARRAY) {
    ArrayCounts counts = RecordCounts(row.record);
    differs = true; /* its instances are those listed, not those of the template */
    if (counts.highest != counts.count)
      AppendAttribute(&element.attributes, kLastAttribute, std::to_string(counts.highest));
  }
  Close(saver, Depth(row));
  saver->open.push_back(element);
  if (differs) WriteStartTags(saver);
  if (!RecordIsLeaf(row.record)) return;
  if (differs)
    CloseLeaf(saver, value);
  else
    saver->open.pop_back();
}

/* All nodes of the tree and of the templates; their orders put each template into its array. */
int GatherAll(MDB_txn *txn, std::vector<Found> *rows) {
  TreeCursor cursor;
  MDB_val key = LmdbVal(nullptr, 0), data;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_FIRST);
  for (; rc == 0; rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT)) {
    Found row = {0, static_cast<uint8_t *>(key.mv_data), key.mv_size, {}};
    if (row.key[0] >= KEY_FORMAT && row.key[0] != KEY_TEMPLATE) continue;
    if (row.key[0] == KEY_TEMPLATE) {
      ++row.key;
      --row.key_length;
    }
    if (KeyIsApart(key) || RecordParse(data, &row.record) != 0) continue;
    rows->push_back(row);
    auto each = [&](const Record &leaf) { rows->push_back({0, row.key, row.key_length, leaf}); };
    if (TreeLeaves(txn, key, row.record, each) != 0) return -1;
  }
  if (rc != MDB_NOTFOUND) return TreeFailed("reading", rc);
  TreeSort(rows, 0);
  return 0;
}

int WriteFile(const std::string &file, const std::string &text) {
  int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  size_t done = 0;
  while (done < text.size()) {
    ssize_t wrote = write(fd, text.data() + done, text.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) break;
    done += static_cast<size_t>(wrote);
  }
  bool whole = done == text.size() && fsync(fd) == 0;
  return close(fd) == 0 && whole ? 0 : -1;
}

int Save(struct AmsTree *root, const char *file, bool pretty) {
  if (root == nullptr || file == nullptr || file[0] == '\0') {
    AMS_PRINT(4, "store: a save needs a tree and a file\n");
    return -1;
  }
  Saver saver = {nullptr, pretty, wrap_margin.load(), {}, {}};
  saver.out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
  int result = TreeRead([&](MDB_txn *txn) {
    std::vector<Found> rows;
    saver.txn = txn;
    if (GatherAll(txn, &rows) != 0) return -1;
    for (const Found &row : rows) SaveRow(&saver, row);
    Close(&saver, 0);
    return rows.empty() ? -1 : 0;
  });
  if (result != 0) {
    AMS_PRINT(4, "store: %s not written: there is no tree to save\n", file);
    return -1;
  }
  saver.out += '\n';
  std::string beside = std::string(file) + ".new";
  if (WriteFile(beside, saver.out) == 0 && rename(beside.c_str(), file) == 0) return 0;
  AMS_PRINT(4, "store: writing %s failed: %s\n", file, strerror(errno));
  (void)unlink(beside.c_str()); /* may not be there */
  return -1;
}

}  // namespace

void mxmlSetWrapMargin(int column) { wrap_margin.store(column < 0 ? 0 : column); }

int ams_save_xml(struct AmsTree *root, const char *file) { return Save(root, file, true); }

int ams_align_xml(struct AmsTree *root, const char *file) { return Save(root, file, false); }
