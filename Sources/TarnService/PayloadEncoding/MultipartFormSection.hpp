#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/Types/URL.hpp>
#include <Tambour/AnyDataRepresentable.hpp>
#include <Tambour/FileRepresentable.hpp>

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace tarn {

/// One field of a form: a name and bytes, or a name and a file.
///
/// Line ends and double quotes in `name` and in the file's name, and line ends in `contentType`,
/// are sent percent-encoded, as browsers send them, so that no text can end a header field early.
struct MultipartFormSection {
  std::string name;
  std::optional<std::string> contentType;
  std::optional<URL> fileURL;
  AnyDataRepresentable dataRepresentable;

  /// Bytes, with a media type where one is given.
  template <DataRepresentable T>
  MultipartFormSection(std::string name, T dataRepresentable)
      : name(std::move(name)), dataRepresentable(std::move(dataRepresentable)) {}
  template <DataRepresentable T>
  MultipartFormSection(std::string name, T dataRepresentable,
                       std::optional<std::string> contentType)
      : name(std::move(name)),
        contentType(std::move(contentType)),
        dataRepresentable(std::move(dataRepresentable)) {}
  /// A file, with the last component of its URL as its name and the MIME type of that name's
  /// extension. It is read when the form's bytes are asked for.
  template <FileRepresentable T>
  MultipartFormSection(std::string name, T fileRepresentable)
      : name(std::move(name)),
        contentType(mimeType(fileRepresentable)),
        fileURL(fileRepresentable.fileURL()),
        dataRepresentable(std::move(fileRepresentable)) {}

  /// "Content-Disposition" and, where there is a content type, "Content-Type".
  std::map<std::string, std::string> headers() const;
  /// The header fields and the bytes, without a line end behind them. Throws what the bytes throw.
  Data asData() const;
};

}  // namespace tarn
