#pragma once
#include <TarnService/Transport/DataTaskProducer.hpp>

#include <memory>
#include <vector>

namespace tarn::test {

/// A producer of a test's own. It and its session keep each other, so, as the shared one, it lives
/// as long as the process.
inline std::shared_ptr<DataTaskProducer> makeProducer() {
  static auto& producers = *new std::vector<std::shared_ptr<DataTaskProducer>>;
  return producers.emplace_back(DataTaskProducer::make());
}

}  // namespace tarn::test
