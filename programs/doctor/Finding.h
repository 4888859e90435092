#pragma once

#include <string>
#include <vector>

namespace doctor {

/// A note is what some programs will stumble over; bad is what keeps the library, or a part of it,
/// from working.
enum class Severity { Ok, Note, Bad };

/// What one check found.
struct Finding {
    Severity severity = Severity::Ok;
    std::string subject; ///< what was looked at, the same whatever was found
    std::string text;    ///< what is so
    std::string advice;  ///< what to do about it; may be empty
};

using Findings = std::vector<Finding>;

} // namespace doctor
