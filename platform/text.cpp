// SPDX-License-Identifier: MIT
#include "platform/text.h"

#include <algorithm>
#include <cstring>

size_t bounded_copy(char *destination, const char *source, size_t size)
{
    size_t wanted = strlen(source);
    if (size == 0)
        return wanted;
    size_t copied = std::min(wanted, size - 1);
    memcpy(destination, source, copied);
    destination[copied] = '\0';
    return wanted;
}

bool has_prefix(const char *text, const char *keyword)
{
    return text && strncmp(text, keyword, strlen(keyword)) == 0;
}

const char *text_at(const char *texts, int place)
{
    for (; place > 0; place--)
        texts += strlen(texts) + 1;
    return texts;
}
