#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/visitable.h"
#include "planex/infra/visitor.h"

namespace test {

/// A visitable object whose Visit is whatever the test says.
class Probe : public etl::IVisitable {
 public:
  using Members = std::function<void(etl::IVisitor&)>;

  explicit Probe(Members members, const char* className = "Probe")
      : members_(std::move(members)), className_(className) {}

  const char* GetClassName() const override { return className_; }
  void Visit(etl::IVisitor& visitor) override { members_(visitor); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override {
    return std::make_unique<Probe>(*this);
  }

 private:
  Members members_;
  const char* className_;
};

/// The document of an object with these members, or the error that writing it gave.
inline std::string written(const Probe::Members& members, bool pretty = false) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, pretty);
  Probe probe(members);
  return serializer.Serialize(probe) ? std::string(stream.GetText())
                                     : serializer.GetErrorDescription();
}

/// Reads a document whose "data" has this text. @return the error, "" when there is none
inline std::string readData(const std::string& data, const Probe::Members& members,
                            bool exactNames = false) {
  const std::string text = R"({"class":"Probe","data":)" + data + "}";
  base::JsonVisitingDeSerializer document(text.c_str(), exactNames);
  Probe probe(members);
  document.DeserializeIntoExistingObject(probe);
  return document.GetErrorDescription();
}

}  // namespace test
