// The library's version: the topmost entry of CHANGELOG.md, with which a check compares it. All
// else that names a version takes it from here.
#pragma once

#define LUMO_KEYMASTER_VERSION "4.1.0"
