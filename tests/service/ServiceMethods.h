// Every method that sends one request, with that request, an answer to it and what comes back.
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
    Bytes reply;
    std::string outputs;  // as Answer tells them
    std::function<Answer(IKeymasterDevice&)> call;
};

const std::vector<ServiceMethod>& serviceMethods();

// The token that the operations among them are given, and its record in hexadecimal.
HardwareAuthToken sampleToken();
extern const char kSampleTokenRecord[];

// The clear part of a key blob of version 4.0, and what is read from it.
Bytes sampleKeyBlob();
extern const char kSampleCharacteristics[];

// Calls each method on `device` twice, refused with TOO_MANY_OPERATIONS and answered, and compares
// what is sent and what is called back.
void expectEveryMethod(IKeymasterDevice& device, bool strongbox);

}  // namespace lumo::test
