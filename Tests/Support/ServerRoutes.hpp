#pragma once
#include <Support/ScriptedServer.hpp>

#include <map>
#include <mutex>

// Private to the scripted server: which script a connection or a request gets.
namespace tarn::test::detail {

using SharedScript = std::shared_ptr<const Script>;

class ServerRoutes {
 public:
  /// Either a script or the handler that makes it.
  struct Choice {
    SharedScript script;
    std::shared_ptr<const ScriptedServer::Handler> handler;
    bool afterHead = false;

    /// Never null: a handler that throws answers 500 with its message.
    SharedScript scriptFor(const ReceivedRequest& request) const;
  };

  void set(std::string path, std::vector<Script> scripts);
  void setHandler(ScriptedServer::Handler handler, ScriptedServer::When when);
  void setOnConnect(Script script);

  Choice choose(const ReceivedRequest& request);
  SharedScript onConnect() const;

 private:
  struct Route {
    std::vector<SharedScript> scripts;
    std::size_t next = 0;
  };

  mutable std::mutex mutex_;
  std::map<std::string, Route, std::less<>> routes_;
  std::shared_ptr<const ScriptedServer::Handler> handler_;
  bool handlerAfterHead_ = false;
  SharedScript onConnect_;
};

}  // namespace tarn::test::detail
