// SPDX-License-Identifier: MIT
#include "model/allocation.h"

namespace {

size_t failing_size;
int still_granted;

bool refuse(size_t size)
{
    if (failing_size == 0 || size != failing_size)
        return false;
    if (still_granted == 0)
        return true;
    still_granted--;
    return false;
}

} // namespace

t_failing_allocation::t_failing_allocation(size_t size, int number)
{
    failing_size = size;
    still_granted = number - 1;
}

t_failing_allocation::~t_failing_allocation()
{
    failing_size = 0;
}

extern "C" {
void *__real_calloc(size_t count, size_t size);
void *__real_malloc(size_t size);

void *__wrap_calloc(size_t count, size_t size)
{
    return refuse(count * size) ? nullptr : __real_calloc(count, size);
}

void *__wrap_malloc(size_t size)
{
    return refuse(size) ? nullptr : __real_malloc(size);
}
}
