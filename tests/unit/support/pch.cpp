// SPDX-License-Identifier: MIT
// Carries the precompiled headers that all tests share.
int main()
{
    return 0;
}
