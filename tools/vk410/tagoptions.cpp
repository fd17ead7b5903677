// SPDX-License-Identifier: MIT
#include "tools/vk410/tagoptions.h"
#include <charconv>
#include <fmt/format.h>

namespace verbs {

namespace {

// "panorama=301"
void applyTag(const std::string& text, receiver::SessionOptions& session)
{
    const std::size_t equals = text.find('=');
    const std::string kind = text.substr(0, equals);
    unsigned int* const tag = kind == "panorama"   ? &session.ifPanoramaTag
                              : kind == "zerospan" ? &session.zeroSpanTag
                              : kind == "df"       ? &session.dfScanTag
                                                   : nullptr;
    const char* const end = text.data() + text.size();
    const char* const begin = equals == std::string::npos ? end : text.data() + equals + 1;
    std::uint16_t value = 0;
    const auto [read, error] = std::from_chars(begin, end, value);
    if (!tag || read != end || error != std::errc{})
        throw receiver::BadSource{fmt::format(
            "--tag '{}': expected panorama=TAG, zerospan=TAG or df=TAG, for example panorama=301", text)};
    *tag = value;
}

} // namespace

void TagOptions::addTo(CLI::App& verb)
{
    verb.add_option("--tag", m_tags, "tags that are taken; panorama=501 zerospan=1801 df=5301 if not given")
        ->type_name("KIND=TAG")
        ->allow_extra_args(false);
}

void TagOptions::apply(receiver::SessionOptions& session) const
{
    for (const std::string& text : m_tags)
        applyTag(text, session);
}

} // namespace verbs
