#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Files/Bundle.hpp>
#include <Platform/Files/ProcessInfo.hpp>

#include <utility>

namespace tarn {

// Neither bundle is ever destroyed: requests of other threads may still read them while the process
// ends.
Bundle& Bundle::main() {
  const detail::NoForkScope scope;  // not while it is being made
  static Bundle& bundle = *new Bundle(
      InfoDictionary{{kCFBundleExecutableKey, ProcessInfo::processInfo().processName()}});
  return bundle;
}

Bundle& Bundle::library() {
  static Bundle& bundle =
      *new Bundle(InfoDictionary{{kCFBundleShortVersionStringKey, TARN_VERSION}});
  return bundle;
}

std::optional<Bundle::InfoDictionary> Bundle::infoDictionary() const {
  const MutexLock lock(mutex_);
  return info_;
}

void Bundle::setInfoDictionary(std::optional<InfoDictionary> info) {
  const MutexLock lock(mutex_);
  std::swap(info_, info);  // the old values, and what they own, go after the lock
}

}  // namespace tarn
