#include <TarnService/Transport/DataTaskProducer.hpp>
#include <TarnService/Transport/DownloadTaskProducer.hpp>
#include <TarnService/Transport/ResetDefaultTaskProducers.hpp>
#include <TarnService/Transport/UploadTaskProducer.hpp>

namespace tarn {

void resetDefaultTaskProducers() {
  DownloadTaskProducer::shared()->resetSession();
  DataTaskProducer::shared()->resetSession();
  UploadTaskProducer::shared()->resetSession();
}

}  // namespace tarn
