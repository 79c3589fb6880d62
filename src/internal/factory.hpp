// SPDX-License-Identifier: MIT
// Reading factory settings inside the library, by the rules of configuration values: nobody is
// told a length, so the buffer holds any value, and a smaller documented size is kept by cutting.
#pragma once

#include <cstdlib>

#include "internal/text.hpp"
#include "platform/factory.h"

namespace prod
{

/** One factory setting; a missing one reads as the empty text. */
class FactoryValue
{
  public:
    /** @param size  the documented size of the value's buffer: longer values are cut to it */
    explicit FactoryValue(const char *name, std::size_t size = FACTORY_VALUE_SIZE)
    {
        text_[0] = '\0';
        ApmibGetValue(name, text_);
        text_[(size < sizeof(text_) ? size : sizeof(text_)) - 1] = '\0';
    }

    const char *c_str() const { return text_; }

    /** The number a setting starts with, 0 when there is none. */
    int to_int() const { return static_cast<int>(strtol(text_, nullptr, 10)); }

  private:
    char text_[FACTORY_VALUE_SIZE];
};

}  // namespace prod
