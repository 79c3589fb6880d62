// SPDX-License-Identifier: MIT
// USB storage: disks, and the room on their partitions.
#include <sys/file.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "files.hpp"
#include "groups.hpp"
#include "prod_common_usb.h"

namespace prodctl
{

namespace
{

constexpr const char *kVolumeFile = "/tmp/UsbVolumeInfo";
constexpr std::size_t kNamesSize = 4096;
constexpr const char *kFigures[] = {"total_gib", "used_gib", "free_gib", "available_gib"};

std::vector<std::string> disks()
{
    char names[kNamesSize] = "";
    std::vector<std::string> found;
    if (prod_common_usb_get_diskname(names, sizeof(names)) == HLX_OK) {
        char *state = nullptr;
        for (const char *name = strtok_r(names, " ", &state); name != nullptr;
             name = strtok_r(nullptr, " ", &state)) {
            found.emplace_back(name);
        }
    }
    return found;
}

int run_disks(const Call &, cJSON *answer)
{
    cJSON *const list = cJSON_AddArrayToObject(answer, "disks");
    for (const std::string &disk : disks()) {
        add_text_to(list, disk);
    }
    return kYes;
}

void show_disks(const cJSON *answer, Page &page)
{
    const cJSON *const list = member(answer, "disks");
    if (cJSON_GetArraySize(list) == 0) {
        page.line({{"No USB disk is attached.", Tone::kFaint}});
    }
    const cJSON *disk;
    cJSON_ArrayForEach(disk, list)
    {
        page.line({disk->valuestring});
    }
}

/** The volume file, whole: whoever writes it holds its lock. */
std::string volume_text()
{
    std::string text;
    const File file{fopen(kVolumeFile, "re")};
    if (file != nullptr && flock(fileno(file.get()), LOCK_SH) == 0) {
        read_all(file.get(), text);
    }
    return text;
}

/** The figures behind a volume's name, ":1.000000G*0.250000G" and so on; false for another text. */
bool read_figures(const char *text, double (&figures)[4])
{
    char before = ':';
    for (double &figure : figures) {
        char *end;
        if (*text != before) {
            return false;
        }
        figure = strtod(text + 1, &end);
        if (*end != 'G') {
            return false;
        }
        text = end + 1;
        before = '*';
    }
    return true;
}

/** Adds what one record tells; a damaged one is passed over. */
void add_volume(cJSON *list, const std::string &record)
{
    const std::size_t name_end = std::min(record.rfind(':'), record.size());
    double figures[4];
    if (!read_figures(record.c_str() + name_end, figures)) {
        return;
    }
    cJSON *const volume = add_object_to(list);
    add_text(volume, "name", std::string_view{record}.substr(0, name_end));
    for (std::size_t i = 0; i < std::size(kFigures); ++i) {
        add_number(volume, kFigures[i], figures[i]);
    }
}

int run_volumes(const Call &call, cJSON *answer)
{
    cJSON *const list = cJSON_AddArrayToObject(answer, "volumes");
    if (disks().empty()) {
        return kYes;
    }
    if (prod_common_get_usbvolume() != HLX_OK) {
        return call.no("the folder of the partitions cannot be read");
    }
    const std::string text = volume_text();
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('~', at), text.size());
        add_volume(list, text.substr(at, end - at));
        at = end + 1;
    }
    return kYes;
}

void show_volumes(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *volume;
    cJSON_ArrayForEach(volume, member(answer, "volumes"))
    {
        std::vector<Cell> row{text_of(volume, "name")};
        for (const char *const figure : kFigures) {
            row.emplace_back(format("%.3f", number_of(volume, figure)));
        }
        rows.push_back(std::move(row));
    }
    page.table({"NAME", "TOTAL GiB", "USED", "FREE", "AVAILABLE"}, rows,
               "No USB disk is attached.");
}

constexpr Command kCommands[] = {
    {.name = "disks",
     .summary = "The USB disks that are attached",
     .run = run_disks,
     .show = show_disks},
    {.name = "volumes",
     .summary = "The room on the partitions of the USB disks",
     .details =
         "Writes /tmp/UsbVolumeInfo, which the web pages read, anew. A partition whose file\n"
         "system does not answer has zeros.",
     .no = "the folder of the partitions cannot be read",
     .run = run_volumes,
     .show = show_volumes},
};

}  // namespace

constinit const Command kUsbGroup = {
    .name = "usb",
    .summary = "USB storage: disks and the room on their partitions",
    .children = kCommands,
};

}  // namespace prodctl
