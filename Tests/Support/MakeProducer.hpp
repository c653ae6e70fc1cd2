#pragma once
#include <TarnService/Transport/DataTaskProducer.hpp>

#include <memory>
#include <vector>

namespace tarn::test {

/// A producer of a test's own. It and its session keep each other, so, as the shared one, it lives
/// as long as the process.
template <class Producer = DataTaskProducer>
std::shared_ptr<Producer> makeProducer() {
  static auto& producers = *new std::vector<std::shared_ptr<Producer>>;
  return producers.emplace_back(Producer::make());
}

}  // namespace tarn::test
