#include "planex/infra/class_repository.h"

#include <functional>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "planex/infra/fork_safety.h"

namespace etl {
namespace {

struct Repository {
  std::shared_mutex mutex;
  std::map<std::string, Classes::Factory, std::less<>> factories;
};

// Made by the first registration, whatever the order of static initialisation, and never
// destroyed, so that documents can be read while other static objects are destroyed.
Repository& repository() {
  static auto* const instance = new Repository;
  return *instance;
}

std::shared_mutex& repositoryMutex() { return repository().mutex; }

[[maybe_unused]] const int kGuarded = base::guardAgainstForks<repositoryMutex>();

Classes::Factory findFactory(std::string_view className) {
  Repository& classes = repository();
  const std::shared_lock lock(classes.mutex);
  const auto found = classes.factories.find(className);
  return found == classes.factories.end() ? nullptr : found->second;
}

}  // namespace

bool Classes::Register(const char* className, Factory factory) {
  Repository& classes = repository();
  const std::unique_lock lock(classes.mutex);
  classes.factories.emplace(className, factory);
  return true;
}

bool Classes::IsRegistered(std::string_view className) { return findFactory(className) != nullptr; }

std::unique_ptr<IVisitable> Classes::New(std::string_view className) {
  const Factory factory = findFactory(className);
  return factory == nullptr ? nullptr : factory();
}

}  // namespace etl
