// Leaf lists; see leaf_list.h.
#include "leaf_list.h"

#include <algorithm>

#include "ams_store.h"

bool NextLeaf(std::string_view *list, Leaf *leaf) {
  if (list->empty()) return false;
  std::string_view piece = list->substr(0, list->find(static_cast<char>(AMS_SEPARATOR)));
  list->remove_prefix(std::min(piece.size() + 1, list->size()));
  size_t equals = piece.find('=');
  *leaf = {piece.substr(0, equals), {}, equals != piece.npos};
  if (leaf->has_value) leaf->value = piece.substr(equals + 1);
  return true;
}
