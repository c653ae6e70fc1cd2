#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Types/UUID.hpp>
#include <TarnService/PayloadEncoding/Detail/SectionHead.hpp>
#include <TarnService/PayloadEncoding/MultipartForm.hpp>

#include <cstddef>

namespace tarn {
namespace {

// Never destroyed: requests of other threads may still be made while the process ends.
const std::string& processBoundary() {
  const detail::NoForkScope scope;  // not while it is being made
  static const auto& boundary = *new std::string("tarnservice.Boundary." + UUID().uuidString());
  return boundary;
}

struct Part {
  std::string head;
  Data bytes;
};

}  // namespace

BoundaryGenerator::BoundaryGenerator() : boundary(processBoundary()) {}

// All bytes are asked for first: their sum makes room for one copy of each, and a section that
// cannot be read costs nothing else.
Data MultipartForm::asData() const {
  const auto& [lineEnd, boundary] = boundaryGeneratory;
  std::vector<Part> parts;
  parts.reserve(sections.size());
  std::size_t size = 0;
  for (const auto& section : sections) {
    std::string separator = (parts.empty() ? "" : lineEnd) + "--" + boundary + lineEnd;
    parts.push_back({separator + detail::sectionHead(section), section.dataRepresentable.asData()});
    size += parts.back().head.size() + parts.back().bytes.size();
  }
  const std::string closing = lineEnd + "--" + boundary + "--" + lineEnd;

  Data body;
  body.reserve(size + closing.size());
  for (auto& [head, bytes] : parts) {
    body.append(head);
    body.append(std::exchange(bytes, Data()));  // what has been copied need not be held twice
  }
  body.append(closing);
  return body;
}

}  // namespace tarn
