// Completion; see completion.h.
#include "completion.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <sstream>

namespace {

using Words = std::vector<std::string>;

Words Split(const std::string &text, char end) {
  Words pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, end);)
    if (!piece.empty()) pieces.push_back(piece);
  return pieces;
}

bool IsOption(const std::string &word) { return word.size() > 1 && word[0] == '-'; }

/* A usage text apart: kinds of words by place, and options with the kind of what stands behind. */
struct Arguments {
  Words places;
  bool again = false; /* the places come again behind the last one */
  std::vector<std::pair<std::string, std::string>> options;
};

Arguments Apart(const std::string &usage) {
  Arguments arguments;
  bool behind_option = false;
  for (std::string token : Split(usage, ' ')) {
    const bool open = token[0] == '[', closed = token.back() == ']';
    arguments.again = arguments.again || token.find("...") != token.npos;
    for (const char *marks : {"[", "]", "...", "]"}) /* "[PATH...]" and "[PATH]..." */
      if (size_t at = token.find(marks); at != token.npos) token.erase(at, strlen(marks));
    if (token.empty() || token == "|") continue;
    if (IsOption(token)) {
      arguments.options.emplace_back(token, "");
      behind_option = !(open && closed);
    } else if (behind_option) {
      arguments.options.back().second = token;
      behind_option = !closed;
    } else {
      arguments.places.push_back(token);
    }
  }
  return arguments;
}

/* How the command line stands: the program or verb that takes the word, its words so far, and, when
   the word is an option's, the kind of that. */
struct Place {
  const CLI::App *app;
  Words before;
  const CLI::Option *option = nullptr;
};

const CLI::Option *OptionOf(const CLI::App *app, const std::string &name) {
  for (; app != nullptr; app = app->get_parent())
    if (const CLI::Option *option = app->get_option_no_throw(name)) return option;
  return nullptr;
}

Place PlaceOf(const CLI::App &top, const Words &words) {
  Place place = {&top, {}};
  for (size_t i = 0; i + 1 < words.size(); ++i) {
    const std::string &word = words[i];
    const CLI::App *verb = place.before.empty() ? VerbNamed(*place.app, word) : nullptr;
    if (const CLI::Option *option = IsOption(word) ? OptionOf(place.app, word) : nullptr) {
      if (option->get_items_expected_max() == 0 || word.find('=') != word.npos) continue;
      if (i + 2 == words.size()) place.option = option;
      ++i;
    } else if (verb != nullptr) {
      place.app = verb;
    } else {
      place.before.push_back(word);
    }
  }
  return place;
}

std::string TypeNames(const CLI::App &verb) {
  std::string usage;
  for (const CLI::Option *option : verb.get_options())
    if (option->get_positional()) usage += option->get_type_name() + " ";
  return usage;
}

bool IsKind(const std::string &word) {
  return std::all_of(word.begin(), word.end(), [](char c) { return isupper(c) || c == '='; });
}

/* Of "on|off" the words themselves. */
Candidates OfKind(const std::string &kind, const Typed &typed, const Completion &completion) {
  if (kind.find('|') == kind.npos && IsKind(kind)) {
    if (kind == "FILE") return FileCandidates(typed.word);
    return completion.of_kind == nullptr ? Candidates() : completion.of_kind(kind, typed);
  }
  Candidates found;
  for (const std::string &word : Split(kind, '|')) found.push_back({word, ""});
  return found;
}

Candidates Verbs(const CLI::App &app) {
  Candidates found;
  for (const CLI::App *verb : VerbsOf(app))
    found.push_back({verb->get_name(), verb->get_description()});
  return found;
}

Candidates OptionNames(const CLI::App *app, const Arguments &arguments) {
  Candidates found;
  for (const auto &[name, kind] : arguments.options) found.push_back({name, kind});
  for (; app != nullptr; app = app->get_parent())
    for (const CLI::Option *option : app->get_options())
      for (const std::string &name : option->get_lnames()) {
        Candidate candidate = {"--" + name, option->get_description()};
        auto same = [&](const Candidate &other) { return other.text == candidate.text; };
        if (std::none_of(found.begin(), found.end(), same)) found.push_back(candidate);
      }
  return found;
}

/* Of the verb's own words: a "NAME=VALUE" that stands for two takes the place of both. */
Candidates AtPlace(const Arguments &arguments, const Typed &typed, const Completion &completion) {
  const Words &places = arguments.places;
  if (!typed.before.empty() && IsOption(typed.before.back()))
    for (const auto &[name, kind] : arguments.options)
      if (name == typed.before.back() && !kind.empty()) return OfKind(kind, typed, completion);
  size_t at = 0;
  for (const std::string &word : typed.before)
    at += places.size() == 2 && at % 2 == 0 && word.find('=') != word.npos ? size_t{2} : size_t{1};
  if (places.empty() || (at >= places.size() && !arguments.again)) return {};
  return OfKind(places[at % places.size()], typed, completion);
}

Candidates CandidatesAt(const Place &place, const std::string &word, const Completion &completion) {
  const Typed typed = {place.before, word};
  if (place.option != nullptr) return OfKind(place.option->get_type_name(), typed, completion);
  const bool verb = place.app->get_parent() != nullptr;
  const bool told = verb && completion.arguments != nullptr;
  const Arguments arguments =
      Apart(told ? completion.arguments(place.app->get_name()) : TypeNames(*place.app));
  if (!word.empty() && word[0] == '-') return OptionNames(place.app, arguments);
  const CLI::App &verbs_of =
      verb && place.app->get_name() == "help" ? *place.app->get_parent() : *place.app;
  if (place.before.empty() && !VerbsOf(verbs_of).empty()) return Verbs(verbs_of);
  return AtPlace(arguments, typed, completion);
}

}  // namespace

std::vector<const CLI::App *> VerbsOf(const CLI::App &app) {
  return app.get_subcommands([](const CLI::App *) { return true; });
}

const CLI::App *VerbNamed(const CLI::App &app, const std::string &name) {
  for (const CLI::App *verb : VerbsOf(app))
    if (verb->get_name() == name) return verb;
  return nullptr;
}

std::string CompletionText(const CLI::App &app, const Words &words, const Completion &completion) {
  const std::string word = words.empty() ? "" : words.back();
  std::string text;
  for (const Candidate &candidate : CandidatesAt(PlaceOf(app, words), word, completion))
    if (candidate.text.compare(0, word.size(), word) == 0)
      text += candidate.text + (candidate.help.empty() ? "" : "\t" + candidate.help) + "\n";
  return text;
}

Candidates FileCandidates(const std::string &word) {
  namespace fs = std::filesystem;
  const std::string folder = word.substr(0, word.rfind('/') + 1);
  Candidates found;
  std::error_code error; /* a folder that cannot be read offers nothing */
  for (fs::directory_iterator at(folder.empty() ? "." : folder, error), end; !error && at != end;
       at.increment(error)) {
    std::error_code unknown;
    found.push_back(
        {folder + at->path().filename().string() + (at->is_directory(unknown) ? "/" : ""), ""});
  }
  std::sort(found.begin(), found.end(),
            [](const Candidate &a, const Candidate &b) { return a.text < b.text; });
  return found;
}
