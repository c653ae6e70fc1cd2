#include <Platform/URLLoading/URLSession.hpp>

/// A session has identity: it is held, not copied.
const tarn::URLSessionConfiguration& hold(const tarn::URLSession& session) {
  return session.configuration();
}

#ifdef FAULT_copied
void copy(tarn::URLSession& to, const tarn::URLSession& from) { to = from; }
#endif
