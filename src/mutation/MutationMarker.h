#pragma once
// The shared-library change marker: "Last Mutation.json" beside the lock, replaced after every
// completed write. A new token in it is the whole signal; it names no note.

#include "platform/Crypto.h"
#include "platform/Time.h"

#include <string>

namespace vorlo {

struct MCPMutationMarker {
    Uuid token;
    Timestamp createdAt;

    // Pretty JSON with sorted keys: createdAt ("YYYY-MM-DDThh:mm:ssZ"), token.
    std::string encode() const;
};

} // namespace vorlo
