#pragma once

// Stand-in for the HIDL message-queue header, which interface code always includes.
// The keymaster interfaces use no message queues, so there is nothing to declare.
