// SPDX-License-Identifier: MIT
// A list of attribute records, as any node of the mesh network may have sent it. What the library
// finds is what another reader finds, and a list that the library writes of that reads the same.
#include <cstring>
#include <set>

#include "fuzz/fuzz.hpp"
#include "prod_common_xmesh.h"
#include "support/mesh_attributes.hpp"

namespace
{

std::string_view text(const std::uint8_t *data, std::size_t size)
{
    return {reinterpret_cast<const char *>(data), size};
}

void find(const std::uint8_t *data, std::size_t size, std::uint16_t type,
          const std::vector<test::MeshRecord> &records)
{
    const auto length_of_list = static_cast<std::uint32_t>(size);
    void *value = nullptr;
    std::uint32_t length = 0;
    const int found = mesh_get_attr(data, length_of_list, type, &value, &length);
    const std::optional<std::string> wanted = test::first_of(records, type);
    FUZZ_CHECK(found == (wanted ? 1 : 0));
    FUZZ_CHECK(mesh_get_attr(data, length_of_list, type, nullptr, nullptr) == found);
    if (found == 0) {
        FUZZ_CHECK(value == nullptr && length == 0);
        return;
    }
    const auto *const start = static_cast<const std::uint8_t *>(value);
    FUZZ_CHECK(start >= data + 8 && start + length <= data + size);
    FUZZ_CHECK(*wanted == text(start, length));
}

/** Writes the records anew, at an odd address. */
void write(const std::vector<test::MeshRecord> &records)
{
    std::size_t size = 0;
    for (const test::MeshRecord &record : records) {
        size += 8 + record.value.size();
    }
    std::vector<std::uint8_t> room(size + 1);
    auto *place = reinterpret_cast<mesh_attr_t *>(room.data() + 1);
    for (const test::MeshRecord &record : records) {
        mesh_set_attr(&place, static_cast<std::uint16_t>(record.type),
                      static_cast<std::uint32_t>(record.value.size()), record.value.data());
    }
    FUZZ_CHECK(reinterpret_cast<std::uint8_t *>(place) == room.data() + 1 + size);
    FUZZ_CHECK(test::mesh_records(text(room.data() + 1, size)) == records);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::vector<test::MeshRecord> records = test::mesh_records(text(data, size));
    std::set<unsigned int> types;
    for (unsigned int type = MESH_ATTR_TIMESTAMP; type <= MESH_ATTR_TIMESYN; ++type) {
        types.insert(type);
    }
    for (const test::MeshRecord &record : records) {
        types.insert(record.type);
    }
    for (const unsigned int type : types) {
        find(data, size, static_cast<std::uint16_t>(type), records);
    }
    write(records);
    return 0;
}
