// SPDX-License-Identifier: Apache-2.0
// The measured parse of a large firmware update package, with all that it prints.
#include <sideband/pldm_fw_update.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "bench/cases.h"
#include "testing/package_builder.h"

namespace bench {
namespace {

pldm_fw_update_ctx context;
int package_file = -1;
std::string path;

tool::Package large_package() {
    tool::Package package;
    package.version = "package 1.0";
    for (size_t i = 0; i < kPackageRecords; ++i) {
        tool::PackageRecord record;
        record.version = "set " + std::to_string(i);
        record.components = {i % 32};
        for (uint8_t j = 0; j < kPackageDescriptors; ++j) {
            record.descriptors.push_back({static_cast<uint16_t>(0x100 + j), {j, 0x15}, {}});
        }
        package.records.push_back(record);
    }
    for (size_t i = 0; i < kPackageComponents; ++i) {
        tool::PackageComponent component;
        component.identifier = static_cast<uint16_t>(i);
        component.version = "component " + std::to_string(i);
        package.components.push_back(component);
    }
    return package;
}

}  // namespace

void prepare_package() {
    const std::vector<uint8_t> bytes = tool::build_package(large_package());
    package_file = memfd_create("package", 0);
    path = "/proc/self/fd/" + std::to_string(package_file);
    if (write(package_file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        path.clear();  // which fails the case
    }
}

bool run_package() {
    pldm_free_ctx_resource(&context);
    return pldm_parse_file(path.c_str(), &context) == 0;
}

bool verify_package() {
    const pldm_device_record* last = context.records + (kPackageRecords - 1);
    return context.device_record_num == kPackageRecords && last->desc_num == kPackageDescriptors &&
           context.component_num == kPackageComponents &&
           std::strcmp(last->image_version_string, "set 63") == 0 &&
           std::strcmp(reinterpret_cast<const char*>(context.component_images[127] + 22),
                       "component 127") == 0;
}

}  // namespace bench
