// Leaf lists: any text as the leaves of a request.
#include "appt_request.h"
#include "check.h"
#include "leaf_list.h"
#include "tds_heap.h"

/* The pieces are all of the text, and the list has each of them. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  auto text = Block(data, size, 1);
  int64_t blocks = tds_malloc_count(nullptr).blocks;
  LeafNode *list = nullptr;
  Check(appt_ParseLeafList(text.get(), &list) == 0, "a list is refused");
  const LeafNode *node = list;
  std::string_view rest = text.get();
  std::string joined;
  for (Leaf leaf; NextLeaf(&rest, &leaf); node = node->next) {
    joined.append(leaf.name).append(leaf.has_value ? "=" : "").append(leaf.value);
    joined += static_cast<char>(AMS_SEPARATOR);
    Check(node != nullptr, "a leaf is missing");
    CheckTexts(node->leafName);
    bool cut = leaf.name.size() >= AMS_NAME_SIZE;
    Check(cut ? !leaf.has_value || node->leafName[0] == '\0' : leaf.name == node->leafName,
          "a leaf has another name");
    Check(node->leafValue == nullptr ? leaf.value.empty() : leaf.value == node->leafValue,
          "a leaf has another value");
  }
  Check(node == nullptr, "there is a leaf too many");
  std::string whole = text.get();
  if (!whole.empty() && whole.back() != AMS_SEPARATOR) whole += static_cast<char>(AMS_SEPARATOR);
  Check(joined == whole, "the leaves are not all of the text");
  appt_FreeLeafList(list);
  Check(tds_malloc_count(nullptr).blocks == blocks, "a block of the counted heap is not freed");
  return 0;
}
