#include "planex/io/provenance.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "planex/io/failure.h"
#include "planex/io/json_value.h"
#include "planex/io/model_file.h"
#include "planex/io/raster.h"
#include "planex/io/utf8.h"

namespace planex::io {
namespace {

namespace fs = std::filesystem;

const cJSON* memberOf(const cJSON* object, const char* name) {
  return cJSON_GetObjectItemCaseSensitive(object, name);
}

/// "firstRow" becomes "first row".
std::string wordsOf(const std::string& name) {
  std::string words;
  for (const char c : name) {
    if (c >= 'A' && c <= 'Z') {
      words += ' ';
      words += static_cast<char>(c - 'A' + 'a');
    } else {
      words += c;
    }
  }
  return words;
}

/// A word of a command line, as a shell takes it.
std::string quoted(const std::string& word) {
  const char* const plain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=:,./@%";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

/// A value in one line, without what is nested deeper than planex writes it.
std::string textOf(const cJSON* value, int depth = 0) {
  if (cJSON_IsString(value)) return value->valuestring;
  if (cJSON_IsNumber(value)) return fmt::format("{}", value->valuedouble);
  if (cJSON_IsBool(value)) return cJSON_IsTrue(value) ? "yes" : "no";
  if (depth > 3) return "...";
  std::string text;
  for (const cJSON* item = value->child; item != nullptr; item = item->next) {
    if (cJSON_IsArray(value)) {
      const bool word = cJSON_IsString(item);
      text += (text.empty() ? ""
               : word       ? " "
                            : "; ") +
              (word ? quoted(textOf(item, depth + 1)) : textOf(item, depth + 1));
    } else {
      text +=
          fmt::format("{}{} {}", text.empty() ? "" : ", ", item->string, textOf(item, depth + 1));
    }
  }
  return text.empty() ? "-" : text;
}

/// The title of a member: of two with one name, that of "made" says more.
std::string titleOf(const std::string& name, bool inMade) {
  if (inMade && name == "model") return "model document";
  if (inMade && name == "rows") return "row spacing";
  return wordsOf(name);
}

void appendLines(const cJSON* object, bool inMade, Provenance& result) {
  for (const cJSON* item = object->child; item != nullptr; item = item->next) {
    if (!inMade && std::strcmp(item->string, "made") == 0) {
      appendLines(item, true, result);
    } else {
      result.lines.emplace_back(inOneLine(titleOf(item->string, inMade)), inOneLine(textOf(item)));
    }
  }
}

/// What is wrong with an output of the list; empty where it is as it was written.
std::string faultOf(const fs::path& output, const cJSON* entry) {
  const cJSON* bytes = memberOf(entry, "bytes");
  struct stat status;
  if (stat(output.c_str(), &status) != 0) return output.string() + ", which is not there";
  const double size = cJSON_IsNumber(bytes) ? bytes->valuedouble : -1;
  if (static_cast<double>(status.st_size) == size) return {};
  return fmt::format("{} with {} bytes, which has {}", output.string(), size,
                     std::int64_t{status.st_size});
}

/// Compares the outputs that a sidecar tells of with the files; only `output` where it is given.
std::string compareOutputs(const cJSON* root, const fs::path& sidecar, const fs::path& output) {
  const cJSON* outputs = memberOf(memberOf(root, "made"), "outputs");
  for (const cJSON* entry = outputs != nullptr ? outputs->child : nullptr; entry != nullptr;
       entry = entry->next) {
    const cJSON* file = memberOf(entry, "file");
    if (!cJSON_IsString(file)) continue;
    const fs::path path = sidecar.parent_path() / unescapedUtf8(file->valuestring);
    if (!output.empty() && path.filename() != output.filename()) continue;
    std::string fault = faultOf(output.empty() ? path : output, entry);
    if (!fault.empty() || !output.empty()) return fault;
  }
  return output.empty() ? std::string() : "other files than " + output.string();
}

/// Whether the file is a JSON object, by its first byte that is no blank. Pipes are left alone.
bool isRegular(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}
bool startsAsObject(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  char c = 0;
  while (file.get(c) && std::isspace(static_cast<unsigned char>(c)) != 0) {
  }
  return file && c == '{';
}

/// The text without what terminals obey but line ends and tabs.
std::string printable(const std::string& text) {
  std::string result;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find_first_of("\n\t", begin), text.size());
    result += inOneLine(text.substr(begin, end - begin)) + text.substr(end, 1);
    begin = end + 1;
  }
  return result;
}

bool isOutputName(const std::string& path) {
  static const char* const kEndings[] = {".png", ".tif", ".tiff", ".ply", ".pcd",
                                         ".npy", ".las", ".csv",  ".xyz"};
  const std::string ending = endingOf(path);
  return std::any_of(std::begin(kEndings), std::end(kEndings),
                     [&](const char* name) { return ending == name; });
}

}  // namespace

std::optional<Provenance> readProvenance(const std::string& path) {
  if (!isRegular(path)) return std::nullopt;
  const bool isOutput = !startsAsObject(path);
  Provenance result;
  result.sidecar = isOutput ? path + ".json" : path;
  if (isOutput && !isRegular(result.sidecar)) {
    if (!isOutputName(path)) return std::nullopt;
    throw Failure(path, "has no sidecar " + result.sidecar +
                            " that tells how it was made; keep them together");
  }
  result.json = readTextFile(result.sidecar);
  const JsonValue root(cJSON_ParseWithOpts(result.json.c_str(), nullptr, 1));
  const cJSON* made = memberOf(root.get(), "made");
  if (!cJSON_IsObject(made) || !cJSON_IsString(memberOf(root.get(), "generator"))) {
    if (!isOutput) return std::nullopt;
    throw Failure(result.sidecar,
                  "does not tell how " + path + " was made; name a model or an output of planex");
  }
  result.json = printable(result.json);
  appendLines(root.get(), false, result);
  const std::string fault = compareOutputs(root.get(), result.sidecar, isOutput ? path : "");
  if (!fault.empty()) result.fault = "tells of " + fault;
  return result;
}

std::string seenFrom(const std::string& sidecar, const std::string& file) {
  const fs::path folder = fs::path(sidecar).parent_path();
  std::error_code error;
  const fs::path seen = fs::proximate(file, folder.empty() ? "." : folder, error);
  return error ? file : seen.string();
}

void addOutput(const JsonObject& made, const std::string& sidecar, const char* content,
               const std::string& file, std::int64_t bytes) {
  const JsonObject output = made.appendTo("outputs");
  output.add("file", escapedUtf8(seenFrom(sidecar, file)));
  output.add("content", content);
  output.add("bytes", static_cast<double>(bytes));
}

}  // namespace planex::io
