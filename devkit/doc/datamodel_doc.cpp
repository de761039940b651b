// Prints docs/datamodel.md: the nodes of the data-model file, what the FUNC tables bind them to,
// what docs/op_functions.txt says of these where they are no script, and the text written by hand
// around them. Says no when one of them has an op function that another one lacks. Or prints the
// programs of the board that the scripts call, for the sandbox.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "op_effects.h"

namespace {

struct Node {
  std::string path; /* below the root, rows as {i} */
  std::string type, op, module, check, description, fits;
  bool writable;
};

/* A node with an op function, or a branch without any, and what is below it up to the next. */
struct Section {
  const Node *head;
  std::vector<const Node *> nodes;
};

using Nodes = std::vector<Node>; /* in the file's order, heads before what is below them */
/* ---- the data-model file ---- */

/* What the leaf's own bounds and list leave of its type. */
std::string FitsOf(const pugi::xml_node &element) {
  const std::string type = element.attribute("type").value();
  const std::string min = element.attribute("min").value(), max = element.attribute("max").value();
  std::string values = element.attribute("values").value();
  for (size_t comma = values.find(','); comma != values.npos; comma = values.find(',', comma + 2))
    values.insert(comma + 1, " ");
  if (!values.empty()) return values[0] == ',' ? "empty" + values : values;
  if (type == "string") return max.empty() ? "" : "at most " + max + " bytes";
  if (max.empty()) return min.empty() ? "" : "from " + min;
  return (min.empty() && type == "unsignedInt" ? "0" : min) + " to " + max;
}

void Collect(const pugi::xml_node &element, const std::string &path, const std::string &module,
             Nodes *nodes) {
  Node node = {path,
               element.attribute("type").value(),
               element.attribute("op").value(),
               element.attribute("mod").as_string(module.c_str()),
               element.attribute("check").value(),
               element.attribute("description").value(),
               FitsOf(element),
               strcmp(element.attribute("writable").value(), "0") != 0};
  auto same = [&](const Node &other) { return other.path == path; };
  /* Rows after the template say only what is different. */
  if (std::none_of(nodes->begin(), nodes->end(), same)) nodes->push_back(node);
  for (const pugi::xml_node &child : element.children()) {
    if (child.type() != pugi::node_element) continue;
    std::string name = child.name();
    if (name == "Template" || name == "Instance") {
      for (const pugi::xml_node &leaf : child.children())
        Collect(leaf, path + ".{i}." + leaf.name(), node.module, nodes);
    } else {
      Collect(child, path.empty() ? name : path + "." + name, node.module, nodes);
    }
  }
}

bool IsBelow(const std::string &path, const std::string &head) {
  return head.empty() || path == head || path.compare(0, head.size() + 1, head + ".") == 0;
}

std::vector<Section> Sections(const Nodes &nodes) {
  std::vector<Section> sections;
  for (const Node &node : nodes) {
    bool branch =
        (node.type == "object" || node.type == "array") && node.path.find('.') == std::string::npos;
    if (!node.op.empty() || branch) sections.push_back({&node, {}});
  }
  for (const Node &node : nodes) {
    Section *nearest = nullptr;
    for (Section &section : sections)
      if (IsBelow(node.path, section.head->path) &&
          (nearest == nullptr || section.head->path.size() > nearest->head->path.size()))
        nearest = &section;
    if (nearest != nullptr && nearest->head != &node) nearest->nodes.push_back(&node);
  }
  return sections;
}

int Compare(const Nodes &nodes, const Effects &effects) {
  std::map<std::string, bool> table = TableNames();
  for (const auto &name : table)
    if (name.second != (effects.count(name.first) == 1))
      return Fail(name.first + (name.second
                                    ? " has a handler and no line in the list of effects"
                                    : " has no handler, but a line in the list of effects"));
  for (const auto &effect : effects)
    if (table.count(effect.first) == 0) return Fail("no FUNC table has " + effect.first);
  for (const Node &node : nodes)
    if (!node.op.empty() && table.count(node.op) == 0)
      return Fail(node.path + ": no FUNC table has " + node.op);
  return 0;
}

/* ---- the page ---- */

void PrintEffects(const Node &head, const Effects &effects) {
  if (head.op.empty()) {
    std::cout << "No op function: values are kept.\n";
    return;
  }
  std::cout << "`" << head.op << "` of `" << head.module << "`";
  auto found = effects.find(head.op);
  if (found == effects.end()) {
    std::cout << ": values are kept, nothing runs.\n";
    return;
  }
  if (found->second.front().ops.empty()) {
    std::cout << ": as `" << found->second.front().text << "`.\n";
    return;
  }
  std::cout << ":\n\n";
  for (const Effect &effect : found->second) {
    std::string ops = effect.ops;
    for (size_t comma = ops.find(','); comma != std::string::npos; comma = ops.find(',', comma + 2))
      ops.insert(comma + 1, " ");
    std::cout << "- " << ops << ": " << effect.text << "\n";
  }
}

void PrintSection(const Section &section, const Effects &effects) {
  const Node &head = *section.head;
  size_t below = head.path.empty() ? 0 : head.path.size() + 1;
  std::cout << "### `" << (below == 0 ? "InternetGatewayDevice" : head.path) << "`\n\n"
            << head.description << " (" << head.type << "). ";
  PrintEffects(head, effects);
  if (!section.nodes.empty())
    std::cout << "\n| node | type | set | shell | |\n|---|---|---|---|---|\n";
  for (const Node *node : section.nodes) {
    bool leaf = node->type != "object" && node->type != "array";
    std::cout << "| `" << node->path.substr(below) << "` | " << node->type
              << (node->fits.empty() ? "" : ": " + node->fits) << " | "
              << (leaf && node->writable ? "yes" : "") << " | " << node->check << " | "
              << node->description << " |\n";
  }
  std::cout << "\n";
}

int PrintPage(const char *prose, const std::vector<Section> &sections, const Effects &effects) {
  std::ifstream lines(prose);
  if (!lines) return Fail(std::string("cannot read ") + prose);
  for (std::string line; std::getline(lines, line);) {
    if (line != "@NODES@") {
      std::cout << line << '\n';
      continue;
    }
    for (const Section &section : sections) PrintSection(section, effects);
  }
  return std::cout.flush() ? 0 : Fail("cannot write");
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 2 && strcmp(argv[1], "--programs") == 0) return PrintPrograms();
  if (argc != 4)
    return Fail("usage: datamodel_doc DATA_MODEL.xml OP_FUNCTIONS.txt PROSE.md, or --programs",
                EXIT_USAGE);
  pugi::xml_document model;
  pugi::xml_parse_result parsed = model.load_file(argv[1]);
  if (!parsed) return Fail(std::string(argv[1]) + ": " + parsed.description());
  Nodes nodes;
  Effects effects;
  Collect(model.document_element(), "", "", &nodes);
  if (ReadEffects(argv[2], &effects) != 0 || Compare(nodes, effects) != 0) return EXIT_REFUSED;
  return PrintPage(argv[3], Sections(nodes), effects);
}
