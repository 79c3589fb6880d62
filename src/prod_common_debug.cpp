// SPDX-License-Identifier: MIT
#include "prod_common_debug.h"

#include <fcntl.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <ctime>

#include "internal/console.hpp"
#include "internal/handle.hpp"
#include "internal/log.hpp"
#include "internal/text.hpp"
#include "ipc/shared_memory.h"

using namespace prod;

// The table is one layout for every process of the device, whatever each was compiled with.
static_assert(sizeof(prod_dbg_cb_t) == 36 && sizeof(prod_dbg_info_t) == 3604);
static_assert(offsetof(prod_dbg_info_t, array) == 4);

namespace
{

constexpr char kTableName[] = "prod.debug.info";
constexpr std::size_t kDateLength = 5;  // "MMDD ", which the file has and the console has not
constexpr off_t kLogFileLimit = 204800;
constexpr mode_t kLogFileMode = 0644;

std::atomic<prod_dbg_info_t *> table;

// Attaching the table creates its key file and names this process, and both of those log when they
// fail. Before the first attachment such a line is dropped while this is set, or the two would call
// each other for ever.
[[gnu::tls_model("initial-exec")]] thread_local bool attaching;

// Levels are taken as plain numbers inside, since the table and callers may hold any.
char letter_of(unsigned int level)
{
    return level >= PROD_DBG_FUNC && level <= PROD_DBG_TRACE ? "-FEDIT"[level] : '-';
}

signed char colour_of(unsigned int level)
{
    // Level 0 really prints black on black; -1 is no colour.
    constexpr signed char kColours[] = {kBlack, kBlue, kRed, kCyan, kWhite, -1};
    return level <= PROD_DBG_TRACE ? kColours[level] : kColours[PROD_DBG_OFF];
}

/** A name to look for, measured once so that each slot costs one word to compare. */
class WantedName
{
  public:
    explicit WantedName(const char *name) : size_(strnlen(name, PROD_DBG_NAME_SIZE) + 1)
    {
        if (size_ > PROD_DBG_NAME_SIZE) {
            return;  // longer than a slot can hold
        }
        memcpy(bytes_, name, size_);
        // The last four bytes, with the NUL, tell names of one family apart soonest.
        if (size_ >= sizeof(std::uint32_t)) {
            tail_at_ = size_ - sizeof(std::uint32_t);
            mask_ = 0xFFFFFFFFU;
        } else {
            mask_ = (1U << (8 * size_)) - 1;
        }
        tail_ = word(bytes_ + tail_at_) & mask_;
    }

    bool too_long() const { return size_ > PROD_DBG_NAME_SIZE; }

    /** Whether the slot may bear the name; few others pass. */
    bool may_be(const prod_dbg_cb_t &slot) const
    {
        return (word(slot.name + tail_at_) & mask_) == tail_;
    }

    /** As strcmp, but never past the slot's own bytes. */
    bool is(const prod_dbg_cb_t &slot) const
    {
        return !too_long() && may_be(slot) && memcmp(slot.name, bytes_, tail_at_) == 0;
    }

  private:
    static std::uint32_t word(const char *at)
    {
        std::uint32_t value;
        memcpy(&value, at, sizeof(value));
        return value;
    }

    std::size_t size_;  // with the NUL
    std::size_t tail_at_ = 0;
    std::uint32_t mask_ = 0;
    std::uint32_t tail_ = 0;
    char bytes_[PROD_DBG_NAME_SIZE] = {};
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the mask of a short name counts on it");

bool same_name(const prod_dbg_cb_t &slot, const char *name)
{
    for (std::size_t i = 0; i < PROD_DBG_NAME_SIZE; ++i) {
        if (slot.name[i] != name[i]) {
            return false;
        }
        if (name[i] == '\0') {
            return true;
        }
    }
    return false;
}

/**
 * Where a name was found last, by the address of the caller's text. It is only a hint: the slot is
 * compared with the name again on every use, so a changed table or a reused address costs a walk.
 */
struct Hint {
    std::atomic<const char *> name;
    std::atomic<std::uint32_t> place;  // table's num << 8 | slot
};
constexpr std::size_t kHints = 64;
constinit Hint hints[kHints];

Hint &hint_for(const char *name)
{
    const auto address = reinterpret_cast<std::uintptr_t>(name);
    return hints[(address ^ (address >> 6)) % kHints];
}

/** The index of the slot that bears the name among the first `num` valid ones, or -1. */
int walk(const prod_dbg_info_t &info, const char *name)
{
    const WantedName wanted{name};
    if (wanted.too_long()) {
        return -1;
    }
    // Four slots at a time, so that a table of modules which this is none of costs little more
    // than reading it; where one of the four may be the name, they are looked at one by one.
    constexpr int kStep = 4;
    static_assert(PROD_DBG_MODULE_MAX % kStep == 0);
    const unsigned int num = info.num;
    unsigned int seen = 0;
    for (int i = 0; i < PROD_DBG_MODULE_MAX && seen < num; i += kStep) {
        const prod_dbg_cb_t *const four = info.array + i;
        if (static_cast<unsigned int>(wanted.may_be(four[0])) |
            static_cast<unsigned int>(wanted.may_be(four[1])) |
            static_cast<unsigned int>(wanted.may_be(four[2])) |
            static_cast<unsigned int>(wanted.may_be(four[3]))) {
            unsigned int seen_here = seen;
            for (int j = 0; j < kStep && seen_here < num; ++j) {
                seen_here += four[j].valid;
                if (four[j].valid && wanted.is(four[j])) {
                    return i + j;
                }
            }
        }
        for (int j = 0; j < kStep; ++j) {
            seen += four[j].valid;
        }
    }
    return -1;
}

/** The slot of a module among the first `num` valid ones, or nullptr. */
const prod_dbg_cb_t *find_module(const prod_dbg_info_t &info, const char *name)
{
    const std::uint32_t num = info.num;
    Hint &hint = hint_for(name);
    if (hint.name.load(std::memory_order_relaxed) == name) {
        const std::uint32_t place = hint.place.load(std::memory_order_relaxed);
        const prod_dbg_cb_t &slot = info.array[place & 0xFF];
        if (place >> 8 == num && slot.valid && same_name(slot, name)) {
            return &slot;
        }
    }
    const int index = walk(info, name);
    if (index < 0) {
        return nullptr;
    }
    hint.place.store(num << 8 | static_cast<std::uint32_t>(index), std::memory_order_relaxed);
    hint.name.store(name, std::memory_order_relaxed);
    return &info.array[index];
}

prod_dbg_info_t *attach_table()
{
    attaching = true;
    auto *const info =
        static_cast<prod_dbg_info_t *>(get_shared_memory(kTableName, sizeof(prod_dbg_info_t)));
    attaching = false;
    return info;
}

/** Builds one log line in a fixed buffer; what does not fit is dropped. */
class LineBuilder
{
  public:
    explicit LineBuilder(char *begin, std::size_t size)
        : begin_(begin), at_(begin), end_(begin + size)
    {
    }

    void put(char c)
    {
        if (at_ < end_ - 1) {
            *at_++ = c;
        }
    }
    void pad(long count)
    {
        const long room = end_ - 1 - at_;
        const long length = count < room ? count : room;
        if (length > 0) {
            memset(at_, ' ', static_cast<std::size_t>(length));
            at_ += length;
        }
    }
    void put(std::string_view text)
    {
        const auto room = static_cast<std::size_t>(end_ - 1 - at_);
        const std::size_t length = text.size() < room ? text.size() : room;
        memcpy(at_, text.data(), length);
        at_ += length;
    }
    void two_digits(int value)
    {
        put(static_cast<char>('0' + value / 10 % 10));
        put(static_cast<char>('0' + value % 10));
    }
    /** As "%4d". */
    void four_columns(int value)
    {
        char digits[12];
        char *first = digits + sizeof(digits);
        auto magnitude =
            static_cast<unsigned int>(value < 0 ? -static_cast<long long>(value) : value);
        do {
            *--first = static_cast<char>('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude > 0);
        if (value < 0) {
            *--first = '-';
        }
        const auto length = static_cast<std::size_t>(digits + sizeof(digits) - first);
        pad(4 - static_cast<long>(length));
        put({first, length});
    }
    __attribute__((format(printf, 2, 0))) void format(const char *text, va_list args)
    {
        const auto room = static_cast<std::size_t>(end_ - at_);
        const int wanted = vsnprintf(at_, room, text, args);
        if (wanted > 0) {
            at_ += strnlen(at_, room - 1);  // a NUL among the arguments ends the message
        }
    }
    /** Exactly one newline, whatever the message ended with. */
    void end_line()
    {
        while (at_ > begin_ && at_[-1] == '\n') {
            --at_;
        }
        put('\n');
        *at_ = '\0';
    }
    std::size_t size() const { return static_cast<std::size_t>(at_ - begin_); }

  private:
    char *begin_;
    char *at_;
    char *end_;
};

/**
 * "MMDD hh:mm:ss" of now, local time. Floods of lines share a second, so each thread keeps its last
 * text, for as long as the second and the zone stay the same.
 */
std::string_view local_date()
{
    struct Last {
        time_t second;
        const char *zone;
        long offset;
        char text[sizeof("MMDD hh:mm:ss")];
    };
    [[gnu::tls_model("initial-exec")]] static thread_local Last last;
    const time_t now = time(nullptr);
    if (last.text[0] == '\0' || last.second != now || last.zone != tzname[0] ||
        last.offset != timezone) {
        struct tm local = {};
        localtime_r(&now, &local);  // sets the zone on its first call, so it is noted after
        LineBuilder builder{last.text, sizeof(last.text)};
        builder.two_digits(local.tm_mon + 1);
        builder.two_digits(local.tm_mday);
        builder.put(' ');
        builder.two_digits(local.tm_hour);
        builder.put(':');
        builder.two_digits(local.tm_min);
        builder.put(':');
        builder.two_digits(local.tm_sec);
        last.second = now;
        last.zone = tzname[0];
        last.offset = timezone;
    }
    return {last.text, sizeof(last.text) - 1};
}

/** "MMDD hh:mm:ss [module.L] line function: ". */
void put_prefix(LineBuilder &builder, Site site, unsigned int level, const char *name,
                unsigned int name_width)
{
    builder.put(local_date());
    const std::string_view module{name};
    builder.put(" [");
    builder.pad(static_cast<long>(name_width) - static_cast<long>(module.size()));
    builder.put(module);
    builder.put('.');
    builder.put(letter_of(level));
    builder.put("] ");
    builder.four_columns(site.line);

    constexpr std::size_t kFunctionColumn = 25;
    const std::string_view function{site.func, strnlen(site.func, kFunctionColumn)};
    builder.put(' ');
    builder.put(function);
    builder.pad(static_cast<long>(kFunctionColumn - function.size()));
    builder.put(": ");
}

constexpr std::string_view kNoColour = "\033[0m";
constexpr std::size_t kColourLength = 10;  // "\033[1;40;31m"

/**
 * Prints a line without its date, between its colours. They are put around it in place (the room
 * is the caller's, kColourLength before and kNoColour after) and taken away again, so that a line
 * is one write and its text whole for the file.
 */
void print_line(char *text, std::size_t size, signed char colour)
{
    char date[kDateLength];
    memcpy(date, text, kDateLength);
    char start[kColourLength + 1] = "\033[1;40;3xm";
    start[kColourLength - 2] = static_cast<char>('0' + colour % 10);
    const std::string_view before = colour >= 0 ? std::string_view{start} : kNoColour;
    char *const console = text + kDateLength - before.size();
    memcpy(console, before.data(), before.size());
    memcpy(text + size, kNoColour.data(), kNoColour.size());

    const std::string_view whole{
        console, static_cast<std::size_t>(text + size - console) + kNoColour.size()};
    if (colour >= 0) {
        console_write(whole);
    } else {
        fwrite(whole.data(), 1, whole.size(), stdout);  // traces come in floods: not flushed
    }
    memcpy(text, date, kDateLength);
    text[size] = '\0';
}

/**
 * Appends a line to the module's file, which never holds much more than 200 KiB: a full one starts
 * again with this line. The file is written here and not through do_file_cmd, since its size is
 * then known from the open descriptor: no second look-up of the path for each error line.
 */
void dbg_write_to_file(const char *name, std::string_view text)
{
    Text<62> path;
    path.append("/var/debug.");
    path.append(name);
    path.append(".log");
    const Fd fd{open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kLogFileMode)};
    if (!fd) {
        return;
    }
    if (lseek(fd.get(), 0, SEEK_END) >= kLogFileLimit && ftruncate(fd.get(), 0) != 0) {
        return;
    }
    [[maybe_unused]] const ssize_t lost_when_full = write(fd.get(), text.data(), text.size());
}

}  // namespace

prod_dbg_info_t *get_dbg_info(void)
{
    prod_dbg_info_t *info = table.load(std::memory_order_relaxed);
    if (__builtin_expect(info != nullptr, 1)) {
        return info;
    }
    if (attaching) {
        return nullptr;
    }
    info = attach_table();
    if (info == nullptr) {
        table_diagnostic(PROD_SITE, "Failed to get shared memory!");
        return nullptr;
    }
    table.store(info, std::memory_order_relaxed);
    return info;
}

prod_dbg_lvl_t get_dbg_level(const char *name)
{
    const prod_dbg_info_t *info = table.load(std::memory_order_relaxed);
    if (__builtin_expect(info == nullptr, 0)) {
        info = get_dbg_info();
    }
    if (__builtin_expect(info == nullptr || name == nullptr, 0)) {
        if (!attaching) {
            table_diagnostic(PROD_SITE, "invalid parameters");
        }
        return PROD_DBG_OFF;
    }
    const prod_dbg_cb_t *const slot = find_module(*info, name);
    return slot != nullptr ? static_cast<prod_dbg_lvl_t>(slot->level) : PROD_DBG_OFF;
}

int set_dbg_level(const char *name, prod_dbg_lvl_t level)
{
    if (name == nullptr) {
        table_diagnostic(PROD_SITE, "invalid parameters");
        return 0;
    }
    prod_dbg_info_t *const info = attach_table();
    if (info == nullptr) {
        table_diagnostic(PROD_SITE, "Failed to get shared memory!");
        return 0;
    }

    prod_dbg_cb_t *match = nullptr;
    prod_dbg_cb_t *vacant = nullptr;
    const WantedName wanted{name};
    unsigned int seen = 0;
    for (prod_dbg_cb_t &slot : info->array) {
        if (!slot.valid) {
            vacant = vacant == nullptr ? &slot : vacant;
        } else if (++seen <= info->num && wanted.is(slot)) {
            match = &slot;
            break;
        }
        if (seen > info->num && vacant != nullptr) {
            break;
        }
    }

    prod_dbg_cb_t *const slot = match != nullptr ? match : vacant;
    if (slot != nullptr) {
        // A count that another program spoiled must not wrap to none.
        if (match == nullptr && info->num < PROD_DBG_MODULE_MAX) {
            ++info->num;
        }
        memset(slot, 0, sizeof(*slot));
        copy_text(slot->name, name);
        slot->valid = level != PROD_DBG_OFF;
        slot->level = static_cast<unsigned int>(level) & 0x7FFFFFFFU;
        if (level == PROD_DBG_OFF) {
            --info->num;
        }
        // The column never shrinks again, so that it stays put while modules come and go.
        const std::size_t length = strnlen(name, PROD_DBG_NAME_SIZE - 1);
        if (match == nullptr && length > info->max_name_len) {
            info->max_name_len = static_cast<unsigned short>(length);
        }
    }

    if (shmdt(info) != 0) {
        const int err = errno;
        table_diagnostic(PROD_SITE, "Failed(%d) to shmdt(%p), %s.", err, static_cast<void *>(info),
                         strerror(err));
    }
    return slot != nullptr;
}

void show_dbg_level(const char *name)
{
    const prod_dbg_info_t *const info = get_dbg_info();
    if (info == nullptr) {
        return;
    }
    const bool all = name == nullptr || *name == '\0';
    if (all) {
        printf("\nDEBUG status: (total %d)\n\n", info->num);
    }
    const WantedName wanted{all ? "" : name};
    const int width =
        info->max_name_len < PROD_DBG_NAME_SIZE ? info->max_name_len : PROD_DBG_NAME_SIZE - 1;
    unsigned int seen = 0;
    for (const prod_dbg_cb_t &slot : info->array) {
        if (seen >= info->num) {
            break;
        }
        if (!slot.valid) {
            continue;
        }
        ++seen;
        if (!all && !wanted.is(slot)) {
            continue;
        }
        const unsigned int level = slot.level;
        printf("\033[0m....[%-*.31s] level=%u\033[0m", width, slot.name, level);
        if (colour_of(level) >= 0) {
            printf("\033[1;%d;%dm [%c]\n\033[0m", kBackground, colour_of(level), letter_of(level));
            fflush(stdout);
        } else {
            printf("\033[0m [%c]\n\033[0m", letter_of(level));
        }
    }
    printf("\n");
}

void prod_debug(const char *func, int line, int level, const char *name, const char *format, ...)
{
    if (attaching && table.load(std::memory_order_relaxed) == nullptr) {
        return;
    }
    const ErrnoKeeper keep;
    const prod_dbg_info_t *const info = get_dbg_info();
    const auto module_level = static_cast<unsigned int>(get_dbg_level(name));
    if (func == nullptr || info == nullptr || name == nullptr || format == nullptr) {
        return;
    }
    // Errors pass always, a line of level 0 too, and one of level 1 as soon as the module is
    // registered at any level: deliberate.
    if (level != PROD_DBG_ERROR && static_cast<unsigned int>(level) > module_level) {
        return;
    }

    char buffer[kColourLength + kLogLineSize + kNoColour.size()];
    char *const text = buffer + kColourLength;
    LineBuilder builder{text, kLogLineSize};
    put_prefix(builder, Site{func, line}, static_cast<unsigned int>(level), name,
               info->max_name_len);
    va_list args;
    va_start(args, format);
    builder.format(format, args);
    va_end(args);
    builder.end_line();

    print_line(text, builder.size(), colour_of(static_cast<unsigned int>(level)));
    if (level == PROD_DBG_ERROR) {
        dbg_write_to_file(name, {text, builder.size()});
    }
}

char level2char(prod_dbg_lvl_t level)
{
    return letter_of(static_cast<unsigned int>(level));
}

signed char level2color(prod_dbg_lvl_t level)
{
    return colour_of(static_cast<unsigned int>(level));
}
