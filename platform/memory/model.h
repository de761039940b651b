// A data-model tree of the store is a pugixml document in the shape of its file, with each row
// whole: an array has its Template, its Instances by number, then what lies beside them. Attributes
// whose names begin with a dot are the store's own: ".status" of a leaf that was last set as one,
// and
// ".changed" of one on the change list.
#pragma once

#include <pugixml.hpp>
#include <string>

/* Whether the node has this type; an instance and a template are objects. */
bool IsArray(const pugi::xml_node &node);
bool IsLeaf(const pugi::xml_node &node);
bool IsInstance(const pugi::xml_node &node);

/* The first child of a node, or the one after `child`: its template is none. */
pugi::xml_node FirstChild(const pugi::xml_node &node);
pugi::xml_node NextChild(const pugi::xml_node &child);

/* Its last name in a path, the whole, and the bytes of the longest path below it. */
std::string NameOf(const pugi::xml_node &node);
std::string PathOf(const pugi::xml_node &node);
size_t LongestBelow(const pugi::xml_node &node);

/* The node of a path; one that is null when there is none. */
pugi::xml_node Find(const pugi::xml_document &tree, const char *path);

void SetAttribute(pugi::xml_node node, const char *name, const std::string &value);

/* Whether its notify attribute asks for its changes. */
bool IsNotified(const pugi::xml_node &node);

/* Sets a leaf; it goes on the change list where that is another value, and one to be notified. */
void SetValue(pugi::xml_node leaf, const std::string &value);

/* Adds an instance as the template has it, in its place, or deletes one. */
pugi::xml_node AddInstance(pugi::xml_node array, unsigned number);
void DeleteInstance(pugi::xml_node instance);

/* Loads a data-model file. Whether it is one; `reason`, behind its line, says why it is not. */
bool ReadModel(const std::string &xml, pugi::xml_document *tree, std::string *reason);

/* The file of a tree. `margin`: the column after which a start tag is broken, 0: never; -1:
 * compact. */
std::string FileOf(const pugi::xml_document &tree, int margin);

/* ` name="value"` for people and clients: `"` in the value is `&quot;`. */
std::string AttributeText(const pugi::xml_attribute &attribute);
