#include "planex/infra/logger.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cwchar>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using base::Logger;
using Texts = std::vector<std::string>;

/// Notes "name|logger|level: message" for each record and then does `inside`.
class Recorder final : public base::LogHandler {
 public:
  Recorder(const std::string& name, Texts& texts, std::function<void()> inside = {})
      : LogHandler(name, true), texts_(texts), inside_(std::move(inside)) {}
  ~Recorder() override { texts_.push_back(GetName() + " destroyed"); }

  void Publish(const base::LogRecord& record) override {
    texts_.push_back(GetName() + "|" + record.loggerName + "|" + GetLogLevelPrefix(record) +
                     record.message);
    if (inside_) inside_();
  }

 private:
  Texts& texts_;
  std::function<void()> inside_;
};

class LoggerTest : public testing::Test {
 protected:
  ~LoggerTest() override {
    for (Logger* logger : {&root_, &named_}) {
      logger->RemoveAllHandlers(true);
      logger->SetUseParentHandlers(true);
    }
    root_.SetLevel(base::WARNING);
    named_.SetLevel(base::INHERIT);
  }

  void Add(Logger& logger, const std::string& name, std::function<void()> inside = {}) {
    logger.AddHandler(std::make_unique<Recorder>(name, texts_, std::move(inside)));
  }

  Texts texts_;
  Logger& root_ = Logger::GetRoot();
  Logger& named_ = Logger::Get("Test.Named");
};

TEST_F(LoggerTest, NamesOneLoggerEachAndTakesTheNearestLevel) {
  EXPECT_EQ(&Logger::Get(""), &root_);
  EXPECT_EQ(&Logger::Get("Test.Named"), &named_);
  const struct {
    std::int32_t rootLevel, ownLevel, recordLevel;
    bool loggable;
  } kCases[] = {{root_.GetLevel(), named_.GetLevel(), base::INFO, false},
                {base::WARNING, base::FINE, base::FINE, true},
                {base::FINE, base::SEVERE, base::WARNING, false},
                {base::OFF, base::INHERIT, base::SEVERE, false},
                {base::INHERIT, base::INHERIT, base::FINEST, true}};
  for (const auto& c : kCases) {
    root_.SetLevel(c.rootLevel);
    named_.SetLevel(c.ownLevel);
    EXPECT_EQ(named_.IsLoggable(c.recordLevel), c.loggable)
        << c.rootLevel << " " << c.ownLevel << " " << c.recordLevel;
  }
}

TEST_F(LoggerTest, PassesRecordsToOwnHandlersThenToTheRoots) {
  Add(root_, "root");
  Add(named_, "first");
  Add(named_, "second");
  named_.Warning("%d %s", 7, "of 9");
  EXPECT_EQ(texts_, (Texts{"first|Test.Named|WARNING: 7 of 9", "second|Test.Named|WARNING: 7 of 9",
                           "root|Test.Named|WARNING: 7 of 9"}));
  texts_.clear();
  named_.SetUseParentHandlers(false);
  named_.Severe("alone");
  EXPECT_EQ(texts_.size(), 2U);
}

TEST_F(LoggerTest, FiltersByLoggerAndByHandler) {
  Add(root_, "root");
  root_.Info("below the root's level");
  root_.SetLevel(base::ALL);
  root_.Info("below the handler's level");
  root_.GetHandler("root")->SetLevel(base::FINE);
  root_.GetHandler("root")->SetShowLogLevel(false);
  root_.Finer("below it too");
  root_.Fine("passes");
  root_.SetLevel(base::OFF);
  root_.Log(base::INFO, "unconditional, 100%s");
  EXPECT_EQ(texts_, (Texts{"root||passes", "root||unconditional, 100%s"}));
}

TEST_F(LoggerTest, LogsAtTheLevelThatAMethodIsNamedFor) {
  const struct {
    std::int32_t level;
    std::string name;
    void (*log)(Logger& logger, int number) = nullptr;
  } kCases[] = {{1000, "SEVERE", [](Logger& l, int i) { l.Severe("%d", i); }},
                {900, "WARNING", [](Logger& l, int i) { l.Warning("%d", i); }},
                {800, "INFO", [](Logger& l, int i) { l.Info("%d", i); }},
                {700, "CONFIG", [](Logger& l, int i) { l.Config("%d", i); }},
                {500, "FINE", [](Logger& l, int i) { l.Fine("%d", i); }},
                {400, "FINER", [](Logger& l, int i) { l.Finer("%d", i); }},
                {300, "FINEST", [](Logger& l, int i) { l.Finest("%d", i); }},
                {0, "INHERIT"},
                {2147483647, "OFF"},
                {-1, "InvalidLogLevel"}};
  Add(root_, "root");
  root_.GetHandler("root")->SetLevel(base::ALL);
  for (const auto& c : kCases) {
    EXPECT_EQ(base::GetLogLevelName(c.level), c.name);
    if (c.log == nullptr) continue;
    texts_.clear();
    for (const int above : {1, 0}) {
      root_.SetLevel(c.level + above);
      c.log(root_, above);
    }
    EXPECT_EQ(texts_, Texts{"root||" + c.name + ": 0"});
  }
}

TEST_F(LoggerTest, FormatsWhatItCanAndDropsWhatAHandlerLogs) {
  const std::string text(100000, 'x');
  Add(root_, "root", [this] {
    named_.Severe("inner");
    if (texts_.size() > 3) throw std::runtime_error("from a handler");
  });
  root_.Severe("%s.", text.c_str());
  root_.Severe("%s", "");
  root_.Severe("%d: %lc", 7, std::wint_t{0xd800});  // half of a pair is no character
  EXPECT_EQ(texts_,
            (Texts{"root||SEVERE: " + text + ".", "root||SEVERE: ", "root||SEVERE: %d: %lc"}));
  EXPECT_THROW(root_.Severe("one"), std::runtime_error);
  EXPECT_THROW(root_.Severe("two"), std::runtime_error) << "as if the first had not thrown";
}

TEST_F(LoggerTest, HandlerMayReplaceItselfWhilePublishing) {
  Add(root_, "old", [this] {
    root_.ReplaceAllHandlers(std::make_unique<Recorder>("fresh", texts_));
    texts_.emplace_back("replaced");
  });
  root_.AddHandler(nullptr);
  root_.Severe("a");
  root_.Severe("b");
  root_.ReplaceAllHandlers(nullptr);
  root_.Severe("c");
  EXPECT_EQ(texts_, (Texts{"old||SEVERE: a", "replaced", "old destroyed", "fresh||SEVERE: b",
                           "fresh destroyed"}));
}

std::atomic<int> published{0};

class Counter final : public base::LogHandler {
 public:
  Counter() : LogHandler("counter", true) {}
  void Publish(const base::LogRecord&) override { ++published; }
};

TEST_F(LoggerTest, LosesNoRecordWhileHandlersAreReplaced) {
  constexpr int kRecords = 2000;
  root_.AddHandler(std::make_unique<Counter>());
  const auto log = [] {
    for (int i = 0; i < kRecords; ++i) Logger::Get("Test." + std::to_string(i % 5)).Severe("%d", i);
  };
  std::thread first(log);
  std::thread second(log);
  for (int i = 0; i < 200; ++i) root_.ReplaceAllHandlers(std::make_unique<Counter>());
  first.join();
  second.join();
  EXPECT_EQ(published, 2 * kRecords);
}

}  // namespace
