// SPDX-License-Identifier: MIT
// What is private in the bytes of the AT port, replaced so that a record of them can be played
// back: lines, places and kinds of values stay, and equal numbers stay equal.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <string_view>

namespace kelo_host
{

// In what the host wrote one asterisk stands for all that is hidden (of a file: one for each byte).
// In what the modem said digits become others, letters an x; of an identity of the SIM or the
// module the first six digits stay, which name its network, its issuer or its type, and of a PDU
// what says how it is read. Passwords, PINs and files are hidden always, the rest unless it is to
// be shown.
class port_mask
{
  public:
    // Who knows the seed knows the digits.
    port_mask(bool show_private, std::uint64_t seed) : show_(show_private), random_(seed) {}

    // One write, in the order in which they went out.
    std::string written(std::string_view bytes);

    // Bytes that end with a line, or, `cut`, in the middle of one that could not be waited for.
    std::string read(std::string_view bytes, bool cut);

    // What is under way has ended with the port.
    void forget();

  private:
    std::string command(std::string_view line);
    std::string line(std::string_view line, bool cut);
    std::string pdu(std::string_view hex);
    std::string digits(std::string_view run);
    std::string identity(std::string_view run);
    std::string shape(std::string_view text, bool counts);
    std::string runs(std::string_view text, bool of_host);

    bool show_;
    std::mt19937_64 random_;
    std::map<std::string, std::string, std::less<>> others_; // digits in place of others
    std::size_t upload_left_ = 0; // bytes of a file that the host announced
    bool body_next_ = false;      // what the host writes next is a message's body
    bool message_ = false;        // what the modem says next may belong to a message,
    bool as_pdu_ = false;         // which is one line
    bool hide_rest_ = false;      // of a line that was cut
};

} // namespace kelo_host
