// What the library exports. Everything else stays hidden, and the version script names the rest.
#pragma once

#define KELO_EXPORT extern "C" __attribute__((visibility("default")))
