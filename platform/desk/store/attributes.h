// The attributes of nodes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "store_desk.h"
#include "tree.h"

/* An attribute set is "name\0value\0..." in the file's order. 0, or -1: not there. */
int TreeAttributes(MDB_txn *txn, uint32_t number, std::string_view *set);
/* The value of `name` in a set; data() is NULL when it is not there. */
std::string_view AttributeIn(std::string_view set, std::string_view name);
/* Takes the first pair off a set. False when there is none left. */
bool AttributeNext(std::string_view *set, std::string_view *name, std::string_view *value);
/* What a set says of its leaf's values. */
void LeafAttributes(std::string_view set, AmsDeskLeaf *leaf);

Key AttributesKey(uint32_t number);

/* The node's notify attribute: "0" when there is none. */
std::string TreeNotify(MDB_txn *txn, const Key &key, const Record &record);
