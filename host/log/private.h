// SPDX-License-Identifier: MIT
// What is private in lines for a log and in objects: who may read them need not know the
// subscriber, what he is told, or where he is.
#pragma once

#include "host/state/status.h"

#include <string>
#include <string_view>

namespace kelo_host
{

// What a line that is hidden whole is shown as.
constexpr const char* hidden_line = "***";

// Masks the library's lines, in the order in which one thread says them. PINs and passwords always;
// identities, telephone numbers, messages and PDUs unless they are to be shown. It errs on the side
// of hiding.
class line_mask
{
  public:
    explicit line_mask(bool show_private) : show_(show_private) {}
    std::string apply(std::string_view line);

  private:
    std::string_view sent(std::string_view line);

    bool show_;
    bool body_next_ = false; // what goes out next is a message's body
    bool dialogue_ = false;  // what came in since the last command may belong to a message,
    bool block_ = false;     // and so may what stands behind a text or -START-, up to -END-,
    bool at_end_ = false;    // of which the last row was seen
};

// What the masks know of what stands on the port, for others: where the first secret, or the first
// text about the subscriber, begins (npos: nowhere), the head of a message, and the end of an
// answer.
std::size_t secret_from(std::string_view line);
std::size_t personal_from(std::string_view line);
bool is_message_head(std::string_view line);
bool is_result(std::string_view line);

// Whether so many digits, in a run of so many hexadecimal ones, are of the SIM or the module,
// wherever they stand; an ICCID may end with a letter.
bool is_identity(std::size_t digits, std::size_t hex);

// The same for a line of this program: its status and its messages.
std::string mask_own_line(std::string_view line);

// The same for an object, whatever is inside of it included: private texts become "***", with the
// last two digits of an identity, private figures null; what stays null is not known. The names of
// what is private are a table in private.cpp. PINs and passwords are taken out.
json_value masked(const json_value& object);

} // namespace kelo_host
