#pragma once

#include <curl/curl.h>

namespace tarn::detail {

/// Has exec() close the two sockets by which libcurl wakes up a multi handle that is waited on: it
/// makes them without that and tells nobody which they are. The handle must be new.
void closeWakeUpPairOnExec(CURLM* multi);

}  // namespace tarn::detail
