#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "planex/foundation/matrix.h"
#include "planex/infra/export.h"

struct cJSON;

namespace planex::io {

/// An object of a JSON text that is being built; a handle that holds as long as its JsonText.
///
/// Numbers get as many digits as reading back needs; NaN and infinities, which JSON cannot say,
/// become null. Bytes of texts that are no UTF-8 become question marks.
class PLANEX_EXPORT JsonObject {
 public:
  /// @{
  /// Adds a member.
  void add(const char* name, double value) const;
  void add(const char* name, const std::string& value) const;
  void add(const char* name, const char* value) const;
  void addNull(const char* name) const;
  /// @}

  /// Adds a list of numbers.
  void addList(const char* name, const double* values, std::size_t count) const;
  /// The same for a container.
  template <typename List>
  void addList(const char* name, const List& values) const {
    addList(name, values.data(), values.size());
  }
  /// Adds a list of the rows of a matrix, each a list of numbers.
  void addRows(const char* name, const cmnalg::Matrix<double>& matrix) const;

  /// Adds an empty object, and returns it.
  JsonObject addObject(const char* name) const;
  /// Adds a list of texts, in which bytes that are no UTF-8 are escaped; see escapedUtf8().
  void addTexts(const char* name, const std::vector<std::string>& texts) const;

  /// Appends an empty object to a list that addList made, and returns it.
  JsonObject appendTo(const char* list) const;

 protected:
  /// @cond
  explicit JsonObject(cJSON* object) : object_(object) {}
  /// @endcond

  cJSON* object_;  ///< belongs to the JsonText
};

/// A JSON text, an object at its root.
class PLANEX_EXPORT JsonText : public JsonObject {
 public:
  JsonText();
  ~JsonText();
  JsonText(const JsonText&) = delete;
  JsonText& operator=(const JsonText&) = delete;

  /// The text, indented, with a line end behind it.
  std::string print() const;
};

}  // namespace planex::io
