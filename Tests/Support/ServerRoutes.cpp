#include <Support/ServerRoutes.hpp>

#include <exception>
#include <stdexcept>
#include <utility>

namespace tarn::test::detail {
namespace {

SharedScript shared(Script script) { return std::make_shared<const Script>(std::move(script)); }

}  // namespace

SharedScript ServerRoutes::Choice::scriptFor(const ReceivedRequest& request) const {
  if (script) return script;
  try {
    return shared((*handler)(request));
  } catch (const std::exception& error) {
    return shared(Script().respond(500, {}, error.what()));
  } catch (...) {
    return shared(Script().respond(500, {}, "the test's handler threw"));
  }
}

void ServerRoutes::set(std::string path, std::vector<Script> scripts) {
  if (scripts.empty()) throw std::invalid_argument("a route needs a script");
  Route route;
  for (Script& script : scripts) route.scripts.push_back(shared(std::move(script)));
  std::lock_guard lock(mutex_);
  routes_.insert_or_assign(std::move(path), std::move(route));
}

void ServerRoutes::setHandler(ScriptedServer::Handler handler, ScriptedServer::When when) {
  std::lock_guard lock(mutex_);
  handler_ = std::make_shared<const ScriptedServer::Handler>(std::move(handler));
  handlerAfterHead_ = when == ScriptedServer::When::headRead;
}

void ServerRoutes::setOnConnect(Script script) {
  std::lock_guard lock(mutex_);
  onConnect_ = shared(std::move(script));
}

ServerRoutes::Choice ServerRoutes::choose(const ReceivedRequest& request) {
  static const SharedScript notFound = shared(Script().respond(404));
  std::lock_guard lock(mutex_);
  if (const auto found = routes_.find(request.path()); found != routes_.end()) {
    Route& route = found->second;
    const SharedScript script = route.scripts[route.next];
    if (route.next + 1 < route.scripts.size()) ++route.next;
    return {script, nullptr, script->startsAfterHead()};
  }
  if (handler_) return {nullptr, handler_, handlerAfterHead_};
  return {notFound, nullptr, false};
}

SharedScript ServerRoutes::onConnect() const {
  std::lock_guard lock(mutex_);
  return onConnect_;
}

}  // namespace tarn::test::detail
