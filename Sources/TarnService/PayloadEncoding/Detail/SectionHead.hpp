#pragma once

#include <TarnService/PayloadEncoding/MultipartFormSection.hpp>

#include <string>

namespace tarn::detail {

/// What stands in front of a section's bytes.
std::string sectionHead(const MultipartFormSection& section);

}  // namespace tarn::detail
