#pragma once

/// Marks every class, template and function that the shared libraries export. The libraries are
/// compiled with hidden visibility, and the mark stands on both sides: a program must see a class
/// with the same visibility as the library, or exceptions and dynamic casts would not match.
#define KESTRO_API [[gnu::visibility("default")]]
