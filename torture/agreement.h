// Whether what the tool believes is what its host holds.
#pragma once

#include <string>
#include <vector>

#include "brenlo/src/system.h"
#include "platform/host/host.h"

/// The addresses that a host holds.
[[nodiscard]] std::vector<HostAddress> standing_addresses(Host& host);

/// Lines about every table of the tool that has a gap or, under the IP Helper, is not sorted, and
/// every address that it lists, or takes for its own, but the host does not hold so; each begins
/// with "DISAGREES". A line that begins with "UNCLAIMED" tells of an address of an adapter that the
/// tool does not list, or does not know for its own although it came to stand since `before`: the
/// tool must then have told of a failure.
[[nodiscard]] std::string disagreements(const System& system, Host& host,
                                        const std::vector<HostAddress>& before);
