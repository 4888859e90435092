#pragma once

#include <string>
#include <vector>

namespace doctor {

/// Note: some programs will have trouble with it. Bad: the library, or a part of it, does not work.
enum class Severity { Ok, Note, Bad };

/// What one check found.
struct Finding {
    Severity severity = Severity::Ok;
    std::string subject; ///< what was checked; does not depend on the result
    std::string text;    ///< the result
    std::string advice;  ///< what to do about it; may be empty
};

using Findings = std::vector<Finding>;

} // namespace doctor
