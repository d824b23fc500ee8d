#pragma once

// Stand-in: the suites include the service manager's interface and use nothing of it.
