// What came in, by the flags that the library raises for its host.
#pragma once

#include "host/status.h"

#include <utility>

namespace kelo_host
{

class news
{
  public:
    // `say` takes one line on each.
    explicit news(speaker say) : say_(std::move(say)) {}

    // Takes the flags down and counts; several times a second.
    void pass();

    const received_counts& received() const { return received_; }

    // Messages come by way of their queue, not of the flag.
    void note_message() { received_.sms++; }

  private:
    speaker say_;
    received_counts received_;
};

} // namespace kelo_host
