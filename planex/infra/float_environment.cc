#include "planex/infra/float_environment.h"

#include <utility>

namespace base {
namespace {

// In the library's own part of thread memory: reaching it neither allocates nor fails.
__attribute__((tls_model("initial-exec"))) thread_local DefaultFloatEnvironment* outermost =
    nullptr;

#ifdef __x86_64__

constexpr std::uint32_t kFlags = 0x3F;  // the same six bits in SSE and x87
constexpr std::uint32_t kDefaultSse = 0x1F80;
constexpr std::uint16_t kDefaultControl = 0x037F;

// The compiler moves no access to memory, no call and no instruction across these statements.

FloatState current() {
  FloatState state;
  asm volatile("stmxcsr %0" : "=m"(state.sse) : : "memory");
  asm volatile("fnstcw %0" : "=m"(state.control));
  asm volatile("fnstsw %0" : "=m"(state.status));
  return state;
}

/// Its flags stay: nothing that runs in it reads them.
FloatState withDefaultModes(const FloatState& state) {
  return {kDefaultSse | (state.sse & kFlags), kDefaultControl, state.status};
}

void setX87(const FloatState& to) {
  struct {
    std::uint16_t control, reserved0, status, reserved1;
    std::uint32_t others[5];
  } environment;
  asm volatile("fnstenv %0" : "=m"(environment));  // masks all exceptions: none is pending then
  environment.control = to.control;
  environment.status =
      static_cast<std::uint16_t>((environment.status & ~kFlags) | (to.status & kFlags));
  asm volatile("fldenv %0" : : "m"(environment));
}

/// Loading costs several times as much as comparing.
void change(const FloatState& from, const FloatState& to) {
  if (from.sse != to.sse) asm volatile("ldmxcsr %0" : : "m"(to.sse));
  if (from.control != to.control || ((from.status ^ to.status) & kFlags) != 0) setX87(to);
  asm volatile("" : : : "memory");
}

FloatState withoutInexactTrap(const FloatState& state) {
  return {state.sse | 0x1000, static_cast<std::uint16_t>(state.control | 0x20), state.status};
}

void enterDefault(const FloatState& from) { change(from, withDefaultModes(from)); }
void restore(const FloatState& state) { change(current(), state); }

#else

FloatState current() {
  FloatState state;
  std::fegetenv(&state);
  return state;
}

void enterDefault(const FloatState& /*from*/) { std::fesetenv(FE_DFL_ENV); }
void restore(const FloatState& state) { std::fesetenv(&state); }
FloatState withoutInexactTrap(const FloatState& state) { return state; }  // has none, mostly

#endif

}  // namespace

DefaultFloatEnvironment::DefaultFloatEnvironment() noexcept
    : former_(current()), outermost_(outermost == nullptr) {
  if (outermost_) outermost = this;
  enterDefault(former_);
}

DefaultFloatEnvironment::~DefaultFloatEnvironment() {
  restore(former_);
  if (outermost_) outermost = nullptr;
}

CallersFloatEnvironment::CallersFloatEnvironment() noexcept
    : former_(current()), outermost_(std::exchange(outermost, nullptr)) {
  if (outermost_ != nullptr) restore(withoutInexactTrap(outermost_->former_));
}

CallersFloatEnvironment::~CallersFloatEnvironment() {
  restore(former_);
  outermost = outermost_;
}

}  // namespace base
