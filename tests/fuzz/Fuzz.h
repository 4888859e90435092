#pragma once

#include <cstdlib>
#include <string_view>

/// Ends the program if what must hold of every input does not.
inline void check(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

/// A target of its own file: an answer of the server's, read in every way.
void answer(std::string_view input);
