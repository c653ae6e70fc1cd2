#include <Platform/URLLoading/Curl/HandlePool.hpp>
#include <Platform/URLLoading/Detail/SharedHeaderFields.hpp>

#include <algorithm>
#include <iterator>
#include <new>

namespace tarn::detail {

namespace {

// As many as there may be idle connections, each of which takes more memory.
constexpr std::size_t mostWaiting = 64;

}  // namespace

TransferHandle::TransferHandle(Use use)
    : use_(std::move(use)), url_(curl_url()), easy_(curl_easy_init()) {
  if (!url_ || !easy_) throw std::bad_alloc();
  setOption(easy(), CURLOPT_ERRORBUFFER, errorText_.data());
  setOption(easy(), CURLOPT_BUFFERSIZE, use_.readBuffer);
}

void TransferHandle::setAddress(const std::string& address) {
  if (address == address_) return;
  address_.clear();
  setOption(easy(), CURLOPT_URL, address.c_str());
  // Parsed here, or libcurl would do so for each transfer. What it can't parse, it is left to
  // refuse.
  constexpr unsigned asLibcurlDoes =
      CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS;
  const auto result = curl_url_set(url_.get(), CURLUPART_URL, address.c_str(), asLibcurlDoes);
  setOption(easy(), CURLOPT_CURLU, result == CURLUE_OK ? url_.get() : nullptr);
  address_ = address;
}

void TransferHandle::setFields(const URLRequest& request, const std::string& authorization) {
  const auto& fields = SharedHeaderFields::of(request);
  const bool sameFields = fields == fields_ || (fields && fields_ && *fields == *fields_);
  fields_ = fields;
  if (hasLines_ && sameFields && authorization == authorization_) return;
  hasLines_ = false;
  lines_ = headerLines(request, use_.sendsBody, authorization);
  setOption(easy(), CURLOPT_HTTPHEADER, lines_.get());
  // Not as a header field: this way it shares one with the session's own cookies.
  const auto cookie = request.value("Cookie");
  if (cookie) setOption(easy(), CURLOPT_COOKIE, std::string(*cookie).c_str());
  keepsFields_ = cookie || request.value("Host");
  authorization_ = authorization;
  hasLines_ = true;
}

void TransferHandle::addField(const std::string& line) {
  hasLines_ = false;
  append(lines_, line.c_str());
  setOption(easy(), CURLOPT_HTTPHEADER, lines_.get());
}

std::unique_ptr<TransferHandle> HandlePool::take(TransferHandle::Use use) {
  const auto last = std::find_if(waiting_.rbegin(), waiting_.rend(),
                                 [&](const auto& handle) { return handle->use() == use; });
  if (last == waiting_.rend()) return std::make_unique<TransferHandle>(std::move(use));
  auto handle = std::move(*last);
  waiting_.erase(std::next(last).base());
  return handle;
}

void HandlePool::give(std::unique_ptr<TransferHandle> handle) noexcept {
  try {
    handle->isFresh_ = false;
    handle->setTransfer(nullptr);
    if (waiting_.size() == mostWaiting) waiting_.erase(waiting_.begin());
    waiting_.push_back(std::move(handle));
  } catch (const std::bad_alloc&) {
    // Then the next one starts afresh.
  }
}

}  // namespace tarn::detail
