#include "DeviceTest.h"

void DeviceTest::SetUp() {
    device = IKeymasterDevice::getService(GetParam());
}
