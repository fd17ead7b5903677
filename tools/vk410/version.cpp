// SPDX-License-Identifier: MIT
#include "tools/vk410/version.h"
#include "vk410_commit.h" // written by the build

namespace verbs {

std::string versionNumber()
{
    return VK410_VERSION;
}

std::string versionText()
{
    return "vk410 " + versionNumber() + " (commit " VK410_COMMIT ")";
}

std::string versionDate()
{
    return VK410_COMMIT_DATE;
}

} // namespace verbs
