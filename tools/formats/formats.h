/** @file Every format there is. */
#ifndef FORMATS_FORMATS_H
#define FORMATS_FORMATS_H

#include "link_format.h"
#include "route_format.h"

namespace formats {

inline constexpr auto k_envelopes = std::to_array<const envelope *>({&k_route, &k_link, &k_frame});

} // namespace formats

#endif
