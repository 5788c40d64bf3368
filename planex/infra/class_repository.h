#pragma once

#include <memory>
#include <string_view>

#include "planex/infra/export.h"
#include "planex/infra/visitable.h"

namespace etl {

/// The visitable classes that can be created by name.
///
/// Each class registers itself while the library is loaded, and stays registered until the
/// process has ended. Looking up is safe from every thread; registering is for static
/// initialisation.
class PLANEX_EXPORT Classes {
 public:
  /// Makes a default-constructed object.
  using Factory = std::unique_ptr<IVisitable> (*)();

  /// Makes `factory` the way to create `className`. @return true, so that a static variable can
  /// hold the call; a name that is registered already keeps its first factory.
  static bool Register(const char* className, Factory factory);

  /// Whether New() knows the name.
  static bool IsRegistered(std::string_view className);

  /// @return a default-constructed object, or null for a name that is not registered
  static std::unique_ptr<IVisitable> New(std::string_view className);
};

/// `static const bool registered = etl::registerClass<Image>("Image");`
template <typename T>
bool registerClass(const char* className) {
  return Classes::Register(className,
                           []() -> std::unique_ptr<IVisitable> { return std::make_unique<T>(); });
}

}  // namespace etl
