#pragma once

#include <arv.h>

#include <memory>
#include <string>

namespace planex::acquisition {

/// An object of GLib that is given back.
template <typename Object>
struct Unref {
  void operator()(Object* object) const { g_object_unref(object); }
};
template <typename Object>
using Ref = std::unique_ptr<Object, Unref<Object>>;

/// Takes an error of Aravis: `arv_camera_get_payload(camera, error.out())`.
class AravisError {
 public:
  AravisError() = default;
  ~AravisError() { g_clear_error(&error_); }
  AravisError(const AravisError&) = delete;
  AravisError& operator=(const AravisError&) = delete;

  /// For a call, which forgets the error of another one.
  GError** out() {
    g_clear_error(&error_);
    return &error_;
  }
  explicit operator bool() const { return error_ != nullptr; }
  /// What it says.
  std::string text() const { return error_ != nullptr ? error_->message : ""; }

 private:
  GError* error_ = nullptr;
};

/// A text of Aravis, which may be null.
inline std::string textOf(const char* text) { return text != nullptr ? text : ""; }

}  // namespace planex::acquisition
