// SPDX-License-Identifier: MIT
// Attribute records of mesh messages read and written a second time, to hold the library's against.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace test
{

struct MeshRecord {
    unsigned int type;
    std::string value;
    bool operator==(const MeshRecord &) const = default;
};

inline std::ostream &operator<<(std::ostream &stream, const MeshRecord &record)
{
    return stream << record.type << " (" << record.value.size() << ") " << record.value;
}

/** The records in front of the first that is not whole. */
inline std::vector<MeshRecord> mesh_records(std::string_view list)
{
    const auto number = [&](std::size_t at, std::size_t digits) {
        unsigned long long value = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            value = value * 256 + static_cast<unsigned char>(list[at + i]);
        }
        return value;
    };
    std::vector<MeshRecord> records;
    for (std::size_t at = 0; at + 8 <= list.size();) {
        const unsigned long long end = at + 8 + number(at + 4, 4);
        if (end > list.size()) {
            break;
        }
        const auto length = static_cast<std::size_t>(end) - at - 8;
        records.push_back(
            {static_cast<unsigned int>(number(at, 2)), std::string{list.data() + at + 8, length}});
        at = static_cast<std::size_t>(end);
    }
    return records;
}

/** The value of the first record of a type. */
inline std::optional<std::string> first_of(const std::vector<MeshRecord> &records,
                                           unsigned int type)
{
    for (const MeshRecord &record : records) {
        if (record.type == type) {
            return record.value;
        }
    }
    return std::nullopt;
}

/** A list as another firmware writes it, whose padding may hold anything. */
inline std::string mesh_message(const std::vector<MeshRecord> &records)
{
    std::string list;
    const auto append = [&](unsigned long long value, int digits) {
        while (digits-- > 0) {
            list += static_cast<char>(value >> 8 * digits & 0xFF);
        }
    };
    for (const MeshRecord &record : records) {
        append(record.type, 2);
        append(0xA55A, 2);
        append(record.value.size(), 4);
        list += record.value;
    }
    return list;
}

}  // namespace test
