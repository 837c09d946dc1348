// SPDX-License-Identifier: MIT
// The four configuration files the daemon reads, as any text. The input is the files, each behind a line "%%".
#include "tests/fuzz/support/config_scene.h"
#include "tests/fuzz/support/fuzz.h"

void prepare()
{
    prepare_config_scene();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<std::string> files = split(text_of({data, size}), PART_SEPARATOR, CONFIG_PACKAGE_COUNT);
    for (size_t i = 0; i < files.size(); i++)
        configure_package(CONFIG_PACKAGES[i], files[i]);
    load_whole_configuration();
    return 0;
}
