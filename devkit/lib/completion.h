// What can stand at the place that is being typed: the one engine of the shells' completion. It
// asks the same rows as --help; what a shell adds is in devkit/rootfs/etc/completion.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/* `text`: more is typed right behind one that ends in ".", "/" or "=". */
struct Candidate {
  std::string text, help;
};
using Candidates = std::vector<Candidate>;

/* The word that is typed, and the verb's words before it. */
struct Typed {
  std::vector<std::string> before;
  std::string word;
};

/* What only the program knows; both may be NULL. */
struct Completion {
  /* A verb's words as its usage shows them: "NAME ID [--text T]", "PATH on|off", "[FILE]", "PATH
     VALUE..." (in turn). NULL: the type names of its positionals are. */
  std::string (*arguments)(const std::string &verb) = nullptr;
  /* Those of a kind, a word in capitals of these; "FILE" is known. */
  Candidates (*of_kind)(const std::string &kind, const Typed &typed) = nullptr;
};

/* A program's verbs, and that of the name; NULL: there is none. */
std::vector<const CLI::App *> VerbsOf(const CLI::App &app);
const CLI::App *VerbNamed(const CLI::App &app, const std::string &name);

/* What the last of `words`, which stand behind the program's name, can become: "TEXT\tHELP" lines.
 */
std::string CompletionText(const CLI::App &app, const std::vector<std::string> &words,
                           const Completion &completion);

/* The files and folders that begin with `word`. */
Candidates FileCandidates(const std::string &word);
