#pragma once

#include <polkitagent/polkitagent.h>

#include "platform/linux/agent/Credentials.h"

namespace authentication_agent {

// Makes an agent that answers the authority's questions with `credentials`, which must outlive it:
// only for the one action of this project, only as that person, and each question once. Everything
// else it declines. To be released with g_object_unref.
PolkitAgentListener* makeAgent(const Credentials& credentials);

}  // namespace authentication_agent
