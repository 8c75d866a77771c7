// What the files of the pre-treatment share among themselves.
#pragma once

#include "at/gsm_at.h"

namespace kelo
{

// Makes `text` the command's text; null leaves the old one. The text becomes the node's. Takes
// flow_lock.
void at_install(at_info* at, char* text);

// Installs the command's template with `value` in the place of `placeholder`.
void at_fill(at_info* at, const char* placeholder, const char* value);

} // namespace kelo
