// SPDX-License-Identifier: MIT
#include "tests/simulation/told.h"

#include <cstdlib>
#include <map>

extern "C" {
#include <libubox/blobmsg.h>
}

namespace sim {

static std::map<std::string, t_told> told_instead;

void tell_instead(const std::string &name, const std::string &text)
{
    told_instead[name].text = text;
}

const t_told *t_told::find(const char *name) const
{
    if (const auto lie = told_instead.find(name); lie != told_instead.end())
        return &lie->second;
    for (const auto &[key, value] : parts)
        if (key == name)
            return &value;
    return nullptr;
}

const t_told &t_told::operator[](const char *name) const
{
    static const t_told nothing;
    const t_told *found = find(name);
    return found ? *found : nothing;
}

int64_t t_told::number() const
{
    return atoll(text.c_str());
}

static t_told read_value(blob_attr *attribute);

static void read_parts(void *data, size_t size, t_told *into)
{
    blob_attr *one;
    auto left = static_cast<int>(size);
    __blob_for_each_attr(one, static_cast<blob_attr *>(data), left)
        into->parts.push_back({blobmsg_name(one), read_value(one)});
}

static t_told read_value(blob_attr *attribute)
{
    t_told told;
    switch (blobmsg_type(attribute)) {
    case BLOBMSG_TYPE_TABLE:
    case BLOBMSG_TYPE_ARRAY:
        read_parts(blobmsg_data(attribute), blobmsg_data_len(attribute), &told);
        break;
    case BLOBMSG_TYPE_STRING:
        told.text = blobmsg_get_string(attribute);
        break;
    case BLOBMSG_TYPE_INT64:
        told.text = std::to_string(static_cast<int64_t>(blobmsg_get_u64(attribute)));
        break;
    case BLOBMSG_TYPE_INT32:
        told.text = std::to_string(static_cast<int32_t>(blobmsg_get_u32(attribute)));
        break;
    case BLOBMSG_TYPE_INT16:
        told.text = std::to_string(blobmsg_get_u16(attribute));
        break;
    default:
        told.text = std::to_string(blobmsg_get_u8(attribute));
        break;
    }
    return told;
}

t_told read_told(blob_attr *message)
{
    t_told told;
    read_parts(blob_data(message), blob_len(message), &told);
    return told;
}

} // namespace sim
