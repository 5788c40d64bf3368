// Writes the manual pages and the completion for bash, from the definitions of the command line and
// the prose that goes with them. Usage: planex_texts PROSE FOLDER
#include <fmt/format.h>
#include <planex/version.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/commands/commands.h"

namespace {

using Options = std::vector<const CLI::Option*>;
using Strings = std::vector<std::string>;

// ---- What there is ----

const char* const kExamples = "Examples:\n";

/// The value that an option or argument takes.
struct Value {
  std::string name;  ///< empty for flags
  Strings choices;   ///< what it can be, where that is little
  std::string from, to;
};

Strings split(const std::string& text, char separator) {
  Strings parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

Value valueOf(const CLI::Option& option) {
  if (option.get_positional()) return {option.get_name(true), {}, {}, {}};
  if (option.get_type_size() == 0) return {};
  const std::string type = option.get_type_name();
  static const std::regex kChecked(R"((.+?):(?:\{(.+)\}|[A-Z]+ in \[(.+) - (.+)\]))");
  std::smatch parts;
  if (!std::regex_match(type, parts, kChecked)) {
    return {type, type.find('|') == std::string::npos ? Strings{} : split(type, '|'), {}, {}};
  }
  Value value{parts[1], split(parts[2], ','), parts[3], parts[4]};
  if (value.from.size() == 1 && value.to.size() == 1) {
    for (char c = value.from[0]; c <= value.to[0]; ++c) value.choices.emplace_back(1, c);
  }
  return value;
}

Options positionals(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

Options optionsOf(const CLI::App& app, const std::string& group) {
  return app.get_options([&](const CLI::Option* option) {
    return option->nonpositional() && option->get_group() == group;
  });
}

Strings namesOf(const CLI::Option& option) {
  Strings names;
  for (const auto& name : option.get_snames()) names.push_back("-" + name);
  for (const auto& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

// ---- Prose ----

/// Texts by heading.
class Prose {
 public:
  explicit Prose(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error(path + ": cannot be read");
    std::string* text = nullptr;
    for (std::string line; std::getline(file, line);) {
      if (line.rfind("@ ", 0) == 0) {
        texts_.emplace_back(line.substr(2), "");
        text = &texts_.back().second;
      } else if (text != nullptr) {
        *text += line + "\n";
      }
    }
  }

  /// The text under a heading; empty where there is none.
  std::string find(const std::string& heading) {
    for (const auto& [name, text] : texts_) {
      if (name != heading) continue;
      used_.insert(name);
      return text;
    }
    return "";
  }

  /// Headings and texts of the sections of a page, those of one heading together.
  std::vector<std::pair<std::string, std::string>> sections(const std::string& page) {
    std::vector<std::pair<std::string, std::string>> found;
    for (const auto& [name, text] : texts_) {
      const std::size_t colon = name.find(':');
      if (colon == std::string::npos) continue;
      const Strings pages = split(name.substr(std::min(colon + 2, name.size())), ' ');
      if (!pages.empty() && std::find(pages.begin(), pages.end(), page) == pages.end()) continue;
      used_.insert(name);
      const std::string title = name.substr(0, colon);
      if (found.empty() || found.back().first != title) found.emplace_back(title, "");
      found.back().second += text;
    }
    return found;
  }

  /// Takes texts of the options of a command as used.
  void passOver(const std::string& command) {
    for (const auto& text : texts_) {
      if (text.first.rfind(command + " ", 0) == 0) used_.insert(text.first);
    }
  }

  void requireAllUsed() const {
    for (const auto& text : texts_) {
      if (used_.count(text.first) == 0) {
        throw std::runtime_error("'" + text.first + "' is no command, option, group or section");
      }
    }
  }

 private:
  std::vector<std::pair<std::string, std::string>> texts_;
  std::set<std::string> used_;
};

// ---- Manual pages ----

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if ((c == '.' || c == '\'') && (result.empty() || result.back() == '\n')) result += "\\&";
    if (c == '-') result += '\\';
    result += c == '\\' ? "\\e" : std::string(1, c);
  }
  return result;
}

std::string bold(const std::string& text) { return "\\fB" + escaped(text) + "\\fR"; }
std::string italic(const std::string& text) { return "\\fI" + escaped(text) + "\\fR"; }

/// Paragraphs, indented lines and terms.
std::string formatted(const std::string& text) {
  std::string page, lines;
  bool parted = false;
  const auto endLines = [&] {
    if (!lines.empty()) page += ".RS 4\n.nf\n" + escaped(lines) + ".fi\n.RE\n";
    lines.clear();
  };
  for (const std::string& line : split(text, '\n')) {
    if (line.rfind("  ", 0) == 0) {
      lines += line.substr(2) + "\n";
      parted = false;
      continue;
    }
    endLines();
    if (line.rfind("* ", 0) == 0) {
      page += ".TP\n" + bold(line.substr(2)) + "\n";
      parted = false;
    } else if (line.empty()) {
      parted = !page.empty();
    } else {
      if (parted) page += ".P\n";
      parted = false;
      page += escaped(line) + "\n";
    }
  }
  endLines();
  return page;
}

std::string section(const std::string& title, const std::string& body) {
  return body.empty() ? "" : ".SH " + title + "\n" + body;
}

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

std::string sentence(const std::string& text) { return text + (text.back() == '.' ? "" : "."); }

std::string joined(const Strings& parts, const std::string& between) {
  return fmt::format("{}", fmt::join(parts, between));
}

std::string entry(const CLI::Option& option, const std::string& page, Prose& prose) {
  const Value value = valueOf(option);
  Strings names, others;
  for (const auto& name : namesOf(option)) names.push_back(bold(name));
  std::string text = sentence(option.get_description());
  if (!value.choices.empty() && value.name.find('|') == std::string::npos) {
    text += " One of " + joined(value.choices, ", ") + ".";
  } else if (!value.from.empty()) {
    text += " From " + value.from + " to " + value.to + ".";
  }
  if (!option.get_default_str().empty()) text += " Default: " + option.get_default_str() + ".";
  for (const CLI::Option* other : option.get_excludes()) others.push_back(other->get_name());
  std::sort(others.begin(), others.end());
  if (!others.empty()) text += " Not together with " + joined(others, ", ") + ".";
  text += "\n";
  if (!option.get_lnames().empty()) {
    const std::string name = "--" + option.get_lnames()[0];
    std::string onThisPage = page;
    onThisPage.append(" ").append(name);
    text += prose.find(onThisPage);
    text += prose.find(name);
  }
  std::string term = joined(names, ", ");
  if (!value.name.empty()) term += (term.empty() ? "" : " ") + italic(value.name);
  return ".TP\n" + term + "\n" + formatted(text);
}

std::string header(const std::string& name, const std::string& description, Prose& prose) {
  std::string brief = description.substr(0, description.find('\n'));
  brief[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(brief[0])));
  if (brief.back() == '.') brief.pop_back();
  return ".TH " + escaped(upper(name)) + " 1 " + split(prose.find("DATE"), '\n').at(0) +
         " \"planex " PLANEX_VERSION_STRING "\" \"User Commands\"\n.SH NAME\n" + escaped(name) +
         " \\- " + escaped(brief) + "\n";
}

std::string optionSections(const CLI::App& app, const std::string& page, Prose& prose) {
  std::string text;
  for (const std::string& group : app.get_groups()) {
    std::string body = formatted(prose.find(group));
    for (const CLI::Option* option : optionsOf(app, group)) body += entry(*option, page, prose);
    const std::string title = group == "Options" ? group : group + " options";
    if (!optionsOf(app, group).empty()) text += section(upper(title), body);
  }
  return text;
}

std::string proseSections(const std::string& page, Prose& prose) {
  std::string text;
  for (const auto& [title, body] : prose.sections(page)) text += section(title, formatted(body));
  return text;
}

/// Help of a command before and after the word "Examples:". One that was not built has none.
std::pair<std::string, std::string> footerOf(const CLI::App& command) {
  const std::string footer = command.get_footer();
  if (footer.empty()) return {};
  const std::size_t examples = footer.find(kExamples);
  if (examples == std::string::npos) {
    throw std::runtime_error(command.get_name() + ": its help gives no examples");
  }
  return {footer.substr(0, examples), footer.substr(examples + std::strlen(kExamples))};
}

std::string commandPage(const CLI::App& command, Prose& prose) {
  const std::string& name = command.get_name();
  const auto [remarks, examples] = footerOf(command);
  if (examples.empty()) prose.passOver(name);
  std::string synopsis = bold("planex " + name), arguments;
  for (const CLI::Option* option : positionals(command)) {
    const std::string argument =
        italic(option->get_name(true)) + (option->get_items_expected_max() > 1 ? "..." : "");
    synopsis += option->get_required() ? " " + argument : " [" + argument + "]";
    arguments += entry(*option, name, prose);
  }
  for (const CLI::Option* option : optionsOf(command, "Options")) {
    if (!option->get_required()) continue;
    synopsis += " " + bold(namesOf(*option)[0]) + " " + italic(valueOf(*option).name);
  }
  const std::string description = sentence(command.get_description()) + "\n" + prose.find(name);
  return header("planex-" + name, command.get_description(), prose) +
         section("SYNOPSIS", synopsis + " [" + italic("OPTIONS") + "]\n") +
         section("DESCRIPTION", formatted(description + "\n" + remarks)) +
         section("ARGUMENTS", arguments) + optionSections(command, name, prose) +
         proseSections(name, prose) +
         (examples.empty() ? "" : section("EXAMPLES", formatted(examples))) +
         section("SEE ALSO", bold("planex") + "(1)\n");
}

std::string mainPage(const CLI::App& app, const std::vector<const CLI::App*>& commands,
                     Prose& prose) {
  std::string list, examples;
  Strings pages;
  for (const CLI::App* command : commands) {
    pages.push_back(bold("planex-" + command->get_name()) + "(1)");
    list += ".TP\n" + pages.back() + "\n" + escaped(sentence(command->get_description())) + "\n";
    const std::string ofCommand = footerOf(*command).second;
    if (!ofCommand.empty()) examples += split(ofCommand, '\n').front() + "\n";
  }
  return header("planex", app.get_description(), prose) +
         section("SYNOPSIS", bold("planex") + " " + italic("COMMAND") + " [" + italic("ARGUMENTS") +
                                 "] [" + italic("OPTIONS") + "]\n") +
         section("DESCRIPTION", formatted(prose.find("planex"))) + section("COMMANDS", list) +
         optionSections(app, "planex", prose) + proseSections("planex", prose) +
         section("EXAMPLES", formatted(examples)) +
         section("SEE ALSO", joined(pages, ",\n") + "\n");
}

// ---- Completion ----

/// What completes a value by its name: words or, where they start with an asterisk, names of files.
const std::map<std::string, std::string> kCompletions = {
    {"A", "*.json"},
    {"B", "*.json"},
    {"FILE", "*"},
    {"HEIGHT", "*.png *.tif *.tiff"},
    {"IMAGE", "*.pgm *.png *.tif *.tiff"},
    {"MODEL", "*.json"},
    {"OUT", "*.csv *.las *.npy *.pcd *.ply *.tif *.tiff *.txt *.xyz"},
    {"PAGE", "*.html"},
    {"PICTURE", "*.png *.svg"},
    {"POINTS", "*"},
    {"PROFILE", "*.csv *.png *.svg"},
    {"RANGE", "*.pgm *.png *.tif *.tiff"},
    {"UNIT", "mm um cm m in"},
};

std::string assignments(const Strings& words, const std::set<std::string>& patterns) {
  return fmt::format("words='{}' patterns='{}' ;;\n", fmt::join(words, " "),
                     fmt::join(patterns, " "));
}

void addCompletion(const Value& value, Strings& words, std::set<std::string>& patterns) {
  words.insert(words.end(), value.choices.begin(), value.choices.end());
  const auto found = kCompletions.find(value.name);
  if (found == kCompletions.end()) return;
  const Strings parts = split(found->second, ' ');
  if (parts[0][0] == '*') {
    patterns.insert(parts.begin(), parts.end());
  } else {
    words.insert(words.end(), parts.begin(), parts.end());
  }
}

/// The branches of a command: those of its options with values, then the one of all else.
std::string branches(const CLI::App& command) {
  Strings options;
  std::set<std::string> files;
  std::map<std::string, Strings> labels;  // of branches with the same assignments
  for (const CLI::Option* option : command.get_options()) {
    const Value value = valueOf(*option);
    if (option->get_positional()) {
      addCompletion(value, options, files);
      continue;
    }
    options.push_back("--" + option->get_lnames().at(0));
    if (value.name.empty()) continue;
    Strings words;
    std::set<std::string> patterns;
    addCompletion(value, words, patterns);
    for (const auto& name : namesOf(*option)) {
      labels[assignments(words, patterns)].push_back(
          fmt::format("'{} {}'", command.get_name(), name));
    }
  }
  std::string text;
  for (const auto& [branch, names] : labels) text += "    " + joined(names, " | ") + ") " + branch;
  return text + "    '" + command.get_name() + " '*) " + assignments(options, files);
}

std::string completion(const CLI::App& app, const std::vector<const CLI::App*>& commands) {
  Strings words;
  std::string cases;
  for (const CLI::App* command : commands) {
    words.push_back(command->get_name());
    cases += branches(*command);
  }
  for (const CLI::Option* option : app.get_options()) words.push_back(namesOf(*option).back());
  return R"(# Completion of the command planex for bash.
_planex() {
  local current=$2 words='' patterns='' pattern
  local -a all
  local command=${COMP_WORDS[1]}
  [ "$COMP_CWORD" -gt 1 ] || command=''
  case "$command $3" in
    ' '*) )" +
         assignments(words, {}) + cases + R"(  esac
  if [[ -z $patterns || $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    return
  fi
  compopt -o filenames 2>/dev/null
  read -ra all <<<"$patterns"
  mapfile -t COMPREPLY < <(
    compgen -d -- "$current"
    for pattern in "${all[@]}"; do compgen -f -X "!$pattern" -- "$current"; done
  )
}
complete -F _planex planex
)";
}

void write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error(path.string() + ": cannot be written");
}

void writeTexts(const std::string& prosePath, const std::filesystem::path& folder) {
  planex::tools::Context context;
  CLI::App app;
  planex::tools::addCommands(app, context);
  const auto commands = std::as_const(app).get_subcommands([](const CLI::App*) { return true; });
  Prose prose(prosePath);
  write(folder / "man1/planex.1", mainPage(app, commands, prose));
  for (const CLI::App* command : commands) {
    write(folder / ("man1/planex-" + command->get_name() + ".1"), commandPage(*command, prose));
  }
  prose.requireAllUsed();
  write(folder / "completions/planex", completion(app, commands));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 3) throw std::runtime_error("usage: planex_texts PROSE FOLDER");
    writeTexts(argv[1], argv[2]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "planex_texts: %s\n", error.what());
    return 1;
  }
}
