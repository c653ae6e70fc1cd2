#pragma once

// All that a user of the library includes.

#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Dispatch/MainQueue.hpp>
#include <Platform/Files/Bundle.hpp>
#include <Platform/Files/Locale.hpp>
#include <Platform/Files/ProcessInfo.hpp>
#include <Platform/JSON/JSONValue.hpp>
#include <Platform/URLLoading/URLSession.hpp>
#include <TarnLogger/Logger.hpp>
#include <TarnService/RequestModel/DataRequest.hpp>
#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/RequestModel/JSONRequest.hpp>
#include <TarnService/RequestModel/JSONRequestable.hpp>
#include <TarnService/RequestModel/UserAgent.hpp>
#include <TarnService/Responses/DataResponse.hpp>
#include <TarnService/Responses/FoundationError.hpp>
#include <TarnService/Responses/HTTPRequestError.hpp>
#include <TarnService/Responses/HTTPResponse.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>
#include <TarnService/Responses/JSONResponse.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
