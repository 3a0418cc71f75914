// Addresses as text. See endpoint.h.
#include "endpoint.h"

#include <fmt/core.h>

namespace vexa {

std::string to_text(endpoint where) {
    return fmt::format("{}.{}.{}.{}:{}", where.ip >> 24, (where.ip >> 16) & 0xFF, (where.ip >> 8) & 0xFF,
                       where.ip & 0xFF, where.port);
}

} // namespace vexa
