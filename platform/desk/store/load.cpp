// Loading a data-model file: read whole, parsed, and put in the place of the tree in one step.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "ams_print.h"
#include "ams_store.h"
#include "load_element.h"
#include "load_rows.h"
#include "status.h"
#include "tree.h"

namespace {

constexpr size_t kFileMax = 64 << 20;
constexpr unsigned kParse = pugi::parse_cdata | pugi::parse_escapes | pugi::parse_wconv_attribute |
                            pugi::parse_eol | pugi::parse_ws_pcdata_single |
                            pugi::parse_embed_pcdata;

/* Not filled before it is read, as a string would be. */
struct FileText {
  std::unique_ptr<char[]> bytes;
  size_t size;
};

/* The open file's name, for the error line. */
std::string NameOf(FILE *file) {
  char name[4096];
  std::string link = "/proc/self/fd/" + std::to_string(fileno(file));
  ssize_t length = readlink(link.c_str(), name, sizeof name);
  return length > 0 ? std::string(name, static_cast<size_t>(length)) : "data-model file";
}

/* The file's size is but a hint: it may be a pipe, or grow. */
int ReadWhole(FILE *file, FileText *text) {
  struct stat info;
  size_t room = 65536, got = 1;
  if (fstat(fileno(file), &info) == 0 && info.st_size > 0 &&
      static_cast<size_t>(info.st_size) <= kFileMax)
    room = static_cast<size_t>(info.st_size) + 1;
  for (*text = {nullptr, 0}; got > 0 && text->size <= kFileMax; text->size += got) {
    if (text->bytes == nullptr || text->size == room) {
      room = text->bytes == nullptr ? room : room * 2;
      std::unique_ptr<char[]> larger(new char[room]);
      if (text->size != 0) memcpy(larger.get(), text->bytes.get(), text->size);
      text->bytes = std::move(larger);
    }
    got = fread(text->bytes.get() + text->size, 1, room - text->size, file);
  }
  return ferror(file) != 0 || text->size > kFileMax ? -1 : 0;
}

void Tell(FILE *file, std::string_view text, ptrdiff_t offset, const std::string &reason) {
  size_t at = offset < 0 ? 0 : std::min(static_cast<size_t>(offset), text.size());
  auto end = text.begin() + static_cast<ptrdiff_t>(at);
  fprintf(stderr, "%s:%td: %s\n", NameOf(file).c_str(), std::count(text.begin(), end, '\n') + 1,
          reason.c_str());
}

/* Parses into `document`. -1 with the reason and the offset of what is wrong. */
int Parse(pugi::xml_document *document, Loader *loader) {
  pugi::xml_parse_result result =
      document->load_buffer(loader->text.data(), loader->text.size(), kParse, pugi::encoding_utf8);
  loader->error_at = result.offset;
  loader->error = result.description();
  if (!result) return -1;
  pugi::xml_node root = document->document_element();
  loader->error_at = root.offset_debug();
  loader->error = std::string("the only root element must be <") + kRootName + ">";
  for (pugi::xml_node node = root.next_sibling(); node; node = node.next_sibling())
    if (node.type() == pugi::node_element) return -1;
  return std::string_view(root.name()) == kRootName ? 0 : -1;
}

/* A server that starts anew when memory is short needs room for its tree beside the one that is
   there. Without it the tree stands all the same. */
void RoomForAnother(MDB_txn *txn) {
  MDB_stat stat;
  if (mdb_stat(txn, shared_tree.lmdb.dbi, &stat) != 0) return;
  size_t pages = stat.ms_branch_pages + stat.ms_leaf_pages + stat.ms_overflow_pages;
  const LmdbPages before = shared_tree.lmdb.pages;
  (void)LmdbRoom(shared_tree.lmdb, txn, pages * stat.ms_psize);
  shared_tree.lmdb.pages.taken = before.taken; /* it is for the next write, not of this one */
  shared_tree.lmdb.pages.large = before.large;
}

int Replace(MDB_txn *txn, pugi::xml_node root, Loader *loader) {
  int rc = StatusTake(txn) == 0 ? mdb_drop(txn, shared_tree.lmdb.dbi, 0) : EIO;
  if (rc == 0) rc = mdb_cursor_open(txn, shared_tree.lmdb.dbi, &loader->cursor);
  if (rc != 0) {
    loader->error = mdb_strerror(rc);
    return -1;
  }
  rc = LoadRows(loader, root);
  mdb_cursor_close(loader->cursor);
  if (rc == 0) RoomForAnother(txn);
  return rc;
}

}  // namespace

struct AmsTree *ams_mxmlLoadFile(void *, FILE *file, void *) {
  pugi::xml_document document;
  Loader loader = {};
  FileText text = {};
  if (file == nullptr) {
    AMS_PRINT(4, "store: no data-model file to load\n");
    return nullptr;
  }
  int rc = ReadWhole(file, &text);
  if (rc != 0) loader.error = "cannot be read, or has more than 64 MiB";
  loader.text = {text.bytes.get(), text.size};
  if (rc == 0) rc = Parse(&document, &loader);
  if (rc == 0) {
    loader.error = "the store cannot be written";
    rc =
        TreeWrite([&](MDB_txn *txn) { return Replace(txn, document.document_element(), &loader); });
  }
  if (rc == 0) return &shared_tree;
  TreeThread()->failed = true; /* ends a span around this: half of the file may be written */
  Tell(file, loader.text, loader.error_at, loader.error);
  return nullptr;
}
