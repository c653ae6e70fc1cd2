#include <Platform/URLLoading/Curl/Session.hpp>
#include <Platform/URLLoading/URLSession.hpp>

namespace tarn {

std::shared_ptr<URLSession> URLSession::make(URLSessionConfiguration configuration,
                                             std::shared_ptr<URLSessionDelegate> delegate,
                                             std::shared_ptr<OperationQueue> delegateQueue) {
  return std::make_shared<detail::CurlSession>(std::move(configuration), std::move(delegate),
                                               std::move(delegateQueue));
}

}  // namespace tarn
