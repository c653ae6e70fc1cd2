#include <TarnService/Sending/DownloadRequestable.hpp>

/// What the downloaded file is to become.
struct Picture {
#ifndef FAULT_bodyIsMadeFromNoFile
  static Picture fromFile(const tarn::URL&) { return {}; }
#endif
};

struct GetPicture : tarn::DownloadGetRequestable<GetPicture, Picture> {};

void send() {
  GetPicture().send(
      std::nullopt,
#ifdef FAULT_progressIsANumber
      [](int) {},
#else
      [](tarn::RequestProgress) {},
#endif
#ifdef FAULT_completionOfAnotherBody
      [](const tarn::DownloadResponse<tarn::File>&) {});
#else
      [](const tarn::DownloadResponse<Picture>&) {});
#endif
}
