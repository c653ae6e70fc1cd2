// cpprestsdk: asynchronous tasks of its thread pool. It opens a connection for each request under
// way, so what is beyond the workload's connections waits here.
#include <algorithm>
#include <array>
#include <atomic>
#include <cpprest/filestream.h>
#include <cpprest/http_client.h>
#include <filesystem>
#include <optional>
#include <pplx/threadpool.h>
#include <semaphore>
#include <string_view>

#include "PlainHTTP.hpp"
#include "RequestQueue.hpp"

namespace {

using Clock = bench::Recorder::Clock;
namespace http = web::http;
namespace streams = concurrency::streams;
using web::json::value;

template <class T>
T read(const value& json);

template <class T>
void read(const value& json, const char* key, T& member) {
  member = read<T>(json.at(key));
}
template <class T>
void read(const value& json, const char* key, std::optional<T>& member) {
  if (json.has_field(key) && !json.at(key).is_null()) member = read<T>(json.at(key));
}
template <class T>
void read(const value& json, const char* key, std::vector<T>& member) {
  const auto& array = json.at(key).as_array();
  member.reserve(array.size());
  for (const auto& element : array) member.push_back(read<T>(element));
}
template <class Enum, std::size_t N>
Enum readEnum(const value& json, const std::array<std::string_view, N>& names) {
  const auto found = std::find(names.begin(), names.end(), json.as_string());
  if (found == names.end()) throw web::json::json_exception("no such case");
  return static_cast<Enum>(found - names.begin());
}

template <>
std::string read(const value& json) {
  return json.as_string();
}
template <>
double read(const value& json) {
  return json.as_double();
}
template <>
bool read(const value& json) {
  return json.as_bool();
}
template <>
std::int32_t read(const value& json) {
  return json.as_number().to_int32();
}
template <>
std::uint32_t read(const value& json) {
  return json.as_number().to_uint32();
}
template <>
std::int64_t read(const value& json) {
  return json.as_number().to_int64();
}
template <>
bench::OrderStatus read(const value& json) {
  return readEnum<bench::OrderStatus>(
      json, std::array<std::string_view, 4>{"placed", "paid", "shipped", "returned"});
}
template <>
bench::Currency read(const value& json) {
  return readEnum<bench::Currency>(json,
                                   std::array<std::string_view, 4>{"EUR", "USD", "GBP", "SEK"});
}
template <>
bench::Location read(const value& json) {
  bench::Location location;
  read(json, "latitude", location.latitude);
  read(json, "longitude", location.longitude);
  return location;
}
template <>
bench::Address read(const value& json) {
  bench::Address address;
  read(json, "name", address.name);
  read(json, "street", address.street);
  read(json, "city", address.city);
  read(json, "postalCode", address.postalCode);
  read(json, "country", address.country);
  read(json, "location", address.location);
  return address;
}
template <>
bench::Product read(const value& json) {
  bench::Product product;
  read(json, "sku", product.sku);
  read(json, "title", product.title);
  read(json, "description", product.description);
  read(json, "price", product.price);
  read(json, "weight", product.weight);
  read(json, "stock", product.stock);
  read(json, "isDigital", product.isDigital);
  read(json, "tags", product.tags);
  return product;
}
template <>
bench::OrderLine read(const value& json) {
  bench::OrderLine line;
  read(json, "product", line.product);
  read(json, "quantity", line.quantity);
  read(json, "discount", line.discount);
  read(json, "isGift", line.isGift);
  return line;
}
template <>
bench::Order read(const value& json) {
  bench::Order order;
  read(json, "id", order.id);
  read(json, "createdAt", order.createdAt);
  read(json, "status", order.status);
  read(json, "currency", order.currency);
  read(json, "total", order.total);
  read(json, "shippingAddress", order.shippingAddress);
  read(json, "billingAddress", order.billingAddress);
  read(json, "lines", order.lines);
  read(json, "history", order.history);
  read(json, "comment", order.comment);
  return order;
}
template <>
bench::OrderPage read(const value& json) {
  bench::OrderPage page;
  read(json, "page", page.page);
  read(json, "totalCount", page.totalCount);
  read(json, "next", page.next);
  read(json, "orders", page.orders);
  return page;
}

class CppRESTClient : public bench::Client {
 public:
  explicit CppRESTClient(const bench::Workload& workload)
      : workload_(workload), target_(workload), client_("http://" + target_.authority()) {}

  void run(std::size_t requests, bench::Recorder& recorder) override {
    left_ = requests;
    bench::RequestQueue queue(requests, workload_.name == "burst" ? requests : workload_.inFlight);
    for (std::size_t count = workload_.connections; count > 0; --count) next(queue, recorder);
    done_.acquire();
  }

 private:
  void next(bench::RequestQueue& queue, bench::Recorder& recorder) {
    const auto queued = queue.take();
    if (!queued) return;
    exchange().then([=, this, &queue, &recorder](const pplx::task<std::size_t>& bytes) {
      try {
        recorder.record(*queued, http::status_codes::OK, bytes.get());
      } catch (const std::exception& error) {
        bench::fail(error.what());
      }
      queue.finish();
      if (--left_ == 0) return done_.release();
      next(queue, recorder);
    });
  }

  /// The bytes of the answer's body.
  pplx::task<std::size_t> exchange() {
    http::http_request request(workload_.name == "upload" ? http::methods::PUT
                                                          : http::methods::GET);
    request.set_request_uri(target_.path);
    for (const auto& [name, text] : target_.fields) request.headers().add(name, text);
    if (workload_.name == "download") return download(request);
    if (workload_.name == "upload") return upload(request);
    return receive(client_.request(request));
  }

  pplx::task<std::size_t> receive(const pplx::task<http::http_response>& answer) {
    if (workload_.name == "json") {
      return answer.then(check).then([](const http::http_response& response) {
        const auto bytes = response.headers().content_length();
        return http::http_response(response).extract_json(true).then([bytes](const value& json) {
          if (!bench::isServedPage(read<bench::OrderPage>(json))) bench::fail("other orders");
          return std::size_t{bytes};
        });
      });
    }
    return answer
        .then([](const http::http_response& response) {
          return check(response).extract_utf8string(true);
        })
        .then([](const std::string& body) { return body.size(); });
  }

  pplx::task<std::size_t> download(http::http_request request) {
    return streams::fstream::open_ostream(workload_.file)
        .then([=, this](const streams::ostream& file) mutable {
          download_ = file;
          request.set_response_stream(file);
          return client_.request(request);
        })
        .then([](const http::http_response& response) { return check(response).content_ready(); })
        .then([this](const http::http_response& response) {
          const std::size_t bytes = response.headers().content_length();
          return download_.close().then([bytes] { return bytes; });
        });
  }

  pplx::task<std::size_t> upload(http::http_request request) {
    return streams::fstream::open_istream(workload_.file)
        .then([=, this](const streams::istream& file) mutable {
          upload_ = file;
          request.set_body(file, std::filesystem::file_size(workload_.file));
          return receive(client_.request(request));
        })
        .then(
            [this](std::size_t bytes) { return upload_.close().then([bytes] { return bytes; }); });
  }

  static http::http_response check(const http::http_response& response) {
    if (response.status_code() != http::status_codes::OK) {
      bench::fail("status " + std::to_string(response.status_code()));
    }
    return response;
  }

  const bench::Workload& workload_;
  const bench::Target target_;
  http::client::http_client client_;
  // Held here, since the last reference waits for the close: never on the pool's one thread.
  streams::ostream download_;
  streams::istream upload_;
  std::atomic<std::size_t> left_ = 0;
  std::binary_semaphore done_{0};
};

}  // namespace

int main(int argc, char** argv) {
  crossplat::threadpool::initialize_with_threads(1);  // 40 otherwise
  return bench::runClient(argc, argv,
                          [](const bench::Workload& workload) -> std::unique_ptr<bench::Client> {
                            if (!bench::isPlain(workload)) return nullptr;
                            return std::make_unique<CppRESTClient>(workload);
                          });
}
