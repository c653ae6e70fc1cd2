#pragma once

// All that a user of the library includes.

#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Dispatch/MainQueue.hpp>
#include <Platform/Files/Bundle.hpp>
#include <Platform/Files/Locale.hpp>
#include <Platform/Files/ProcessInfo.hpp>
#include <Platform/Files/UniformType.hpp>
#include <Platform/URLLoading/URLSession.hpp>
#include <Tambour/File.hpp>
#include <TarnLogger/Logger.hpp>
#include <TarnService/PayloadEncoding/DataAdditions.hpp>
#include <TarnService/PayloadEncoding/GZip.hpp>
#include <TarnService/PayloadEncoding/MultipartForm.hpp>
#include <TarnService/RequestModel/DataRequest.hpp>
#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/RequestModel/UserAgent.hpp>
#include <TarnService/Responses/DataResponse.hpp>
#include <TarnService/Responses/DownloadResponse.hpp>
#include <TarnService/Responses/FoundationError.hpp>
#include <TarnService/Responses/GZipError.hpp>
#include <TarnService/Responses/HTTPRequestError.hpp>
#include <TarnService/Responses/HTTPResponse.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>
#include <TarnService/Sending/DownloadRequest.hpp>
#include <TarnService/Sending/DownloadRequestable.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
#include <TarnService/Sending/UploadRequestable.hpp>
#include <TarnService/Transport/FileManagerAdditions.hpp>
#include <TarnService/Transport/ResetDefaultTaskProducers.hpp>
