// The names of severities.
#include "finding.h"

namespace formats {

const char *name_of(severity how) {
    switch (how) {
    case severity::note:
        return "note";
    case severity::cut:
        return "cut";
    default:
        return "malformed";
    }
}

} // namespace formats
