// Empty: the library passes no message queues.
#pragma once
