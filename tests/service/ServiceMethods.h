// Every method that sends one request, with that request.
#pragma once

#include <functional>
#include <vector>

#include "ServiceTest.h"

namespace lumo::test {

struct ServiceMethod {
    const char* name;
    uint32_t command;
    uint32_t strongbox_command;  // 0: answers UNIMPLEMENTED without sending
    std::string request;         // hexadecimal
    std::function<Answer(IKeymasterDevice&)> call;
};

const std::vector<ServiceMethod>& serviceMethods();

// The token that the operations among them are given, and its record in hexadecimal.
HardwareAuthToken sampleToken();
extern const char kSampleTokenRecord[];

// Calls each method on `device`, whose requests are refused with TOO_MANY_OPERATIONS, and compares
// what is sent and what is called back.
void expectEveryMethodReachesTheTransport(IKeymasterDevice& device, bool strongbox);

}  // namespace lumo::test
