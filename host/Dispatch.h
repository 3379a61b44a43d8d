#pragma once

#include <json/value.h>

#include <string>

#include "host/Caller.h"
#include "host/Module.h"

namespace KIVO::Host {

/// The JSON object that a request's body is. Throws a Refusal 400 when it is something else.
[[nodiscard]] Json::Value ParseParameters(const std::string& body);

/// The envelopes in which every answer is sent, of data that is a JSON text.
std::string SuccessEnvelope(const std::string& data);
std::string ErrorEnvelope(int code, const std::string& data);

/// Answers one request: asks the method's check function and, unless it refuses, the handler, and returns the
/// envelope of what they answered. `body` is a JSON object whose members are the parameters. Throws a
/// Refusal: 400 when the body is something else, 500 when the method threw, which is logged, or set no
/// answer.
[[nodiscard]] std::string Dispatch(const Method& method, const Caller& caller, const std::string& body);

}  // namespace KIVO::Host
