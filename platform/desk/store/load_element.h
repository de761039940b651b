// The elements of a data-model file, and the state of a load.
#pragma once

#include <memory>
#include <pugixml.hpp>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "file_form.h"
#include "tree.h"

struct AttributeSet {
  uint32_t number;
  uint8_t flags; /* RECORD_... that follow from it */
};

/* An element looked at once, with all below it but the instances: those are many and alike. */
struct Element {
  pugi::xml_node node;
  std::string_view name;
  std::string_view tag; /* in a Template: its start tag in the file */
  uint8_t kind;
  uint16_t place; /* among its siblings in the file */
  AttributeSet set;
  std::string_view notify;
  const Element *counts; /* a "...NumberOfEntries" leaf: the array whose instances it counts */
  std::vector<Element> children; /* by name; of an array: the objects beside its rows */
  std::vector<uint16_t> in_file; /* by place: where it is in `children` */
  std::unique_ptr<Element> row;  /* of an array: its Template */
};

/* An object's leaves as they are gathered for its row. */
struct LoadedLeaves {
  ObjectCounts counts;
  std::vector<LeafHead> heads;
  std::string texts;                                      /* names and values */
  std::vector<std::pair<std::string, std::string>> apart; /* keys and values */
};

/* The state of one load: where it is, and what cannot be written in key order yet. */
struct Loader {
  std::string_view text;         /* of the file */
  MDB_cursor *cursor;            /* on the emptied tree */
  Key key;                       /* of the node in work */
  char order[2 * AMS_PATH_SIZE]; /* of the node in work: four bytes at most for two of a path */
  size_t order_length;
  size_t path_length;  /* of the node in work, as a path */
  int instances;       /* how many instances it lies in */
  int depth;           /* elements above the one that is looked at */
  int templates;       /* of these, Templates */
  size_t bytes;        /* of rows so far */
  std::string scratch; /* an attribute set being built */
  std::string record;  /* a row being built */
  LoadedLeaves leaves; /* of an object whose row is built next */
  std::unordered_map<std::string, AttributeSet> sets;
  std::vector<std::pair<std::string, std::string>> later;
  std::string error;  /* why the load ended */
  ptrdiff_t error_at; /* offset in the file */
};

/* Whether the child of an array is its Template or an Instance. */
bool LoadIsRow(pugi::xml_node node);

/* Says what is wrong with an element. Returns -1. */
int LoadRefuse(Loader *loader, pugi::xml_node where, const std::string &reason);

/* Looks at an element and all below it. `row`: it is an Instance or a Template,
   which need no type. 0, or -1 with the loader's error set. */
int LoadElement(Loader *loader, pugi::xml_node node, bool row, Element *element);

/* Type, attribute set and notify attribute alone. */
int LoadAttributes(Loader *loader, pugi::xml_node node, bool row, Element *element);

/* True when a node is an element with this start tag in the file: all its attributes are the same.
 */
bool LoadHasTag(const Loader &loader, pugi::xml_node node, std::string_view tag);

/* -1 (refused) when a leaf holds elements. */
int LoadCheckLeaf(Loader *loader, pugi::xml_node leaf);
