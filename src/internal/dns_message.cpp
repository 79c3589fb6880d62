// SPDX-License-Identifier: MIT
#include "internal/dns_message.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace prod
{

namespace
{

using Message = std::span<const unsigned char>;

constexpr unsigned int kTypeA = 1;
constexpr unsigned int kTypeCname = 5;
constexpr unsigned int kClassInternet = 1;

// A header's fields.
constexpr std::size_t kQuestionCount = 4;
constexpr std::size_t kAnswerCount = 6;

// A record's fields, behind a name of two bytes: the pointer to the question's name that servers
// send for a query with one question. Records under names written out are not understood.
constexpr std::size_t kRecordType = 2;
constexpr std::size_t kRecordLength = 10;
constexpr std::size_t kRecordData = 12;

constexpr unsigned char kPointerBits = 0xC0;
constexpr int kMostJumps = 64;
constexpr int kMostLabels = 128;

unsigned int read_u16(Message message, std::size_t at)
{
    return static_cast<unsigned int>(message[at] << 8 | message[at + 1]);
}

void append_u16(DnsQuestion &question, std::size_t &length, unsigned int value)
{
    question[length++] = static_cast<unsigned char>(value >> 8);
    question[length++] = static_cast<unsigned char>(value);
}

/** A name on its way into a text; what has no room is left out. */
class NameText
{
  public:
    NameText(DnsName &text, std::size_t length) : text_(text.data()), length_(length) {}

    /** Appends @p size bytes, with a dot in front unless they are the first. */
    void append_label(Message message, std::size_t at, std::size_t size, bool first)
    {
        if (!first && length_ < kMost) {
            text_[length_++] = '.';
        }
        // Most labels are short: a block of fixed size costs less than the exact bytes. What stands
        // in it behind the label is written over.
        constexpr std::size_t kBlock = 16;
        if (size <= kBlock && message.size() - at >= kBlock && kMost - length_ >= kBlock) {
            memcpy(text_ + length_, &message[at], kBlock);
            length_ += size;
            return;
        }
        const std::size_t taken = std::min(size, kMost - length_);
        memcpy(text_ + length_, &message[at], taken);
        length_ += taken;
    }

    /** @return the length of the text */
    std::size_t end()
    {
        text_[length_] = '\0';
        return length_;
    }

  private:
    static constexpr std::size_t kMost = std::tuple_size_v<DnsName> - 1;

    char *text_;
    std::size_t length_;
};

/** Walks over the labels of a name; true when it is whole. */
bool append_name(Message message, std::size_t at, NameText &text)
{
    bool elsewhere = false;  // a pointer lost its upper bits, so what is met proves nothing
    int jumps = 0;
    int labels = 0;
    while (at < message.size()) {
        const unsigned char lead = message[at];
        if (lead == 0) {
            return true;
        }
        if (is_pointer(lead) != 0) {
            if (at + 1 >= message.size() || ++jumps > kMostJumps) {
                break;
            }
            elsewhere = elsewhere || (lead & ~kPointerBits) != 0;
            at = message[at + 1];
            continue;
        }
        ++at;
        if (lead > message.size() - at || ++labels > kMostLabels) {
            break;
        }
        text.append_label(message, at, lead, labels == 1);
        at += lead;
    }
    return elsewhere;
}

/** Whether a name can be decoded. */
bool is_name(Message message, std::size_t at)
{
    DnsName name;
    std::size_t length = 0;
    return parse_dns_name(message, at, name, length);
}

/** Moves on behind a question; names in questions are not compressed. */
bool skip_question(Message message, std::size_t &at)
{
    constexpr std::size_t kTypeAndClass = 4;
    while (at < message.size() && message[at] != 0) {
        at += 1U + message[at];
    }
    at += 1 + kTypeAndClass;
    return at <= message.size();
}

}  // namespace

int is_pointer(int in)
{
    return (in & kPointerBits) == kPointerBits;
}

bool generate_question(const char *dns_name, DnsQuestion &buf, std::size_t &len)
{
    // The first label's length, the end of the name, the type and the class. The other labels'
    // lengths take the places of the dots.
    constexpr std::size_t kBesideTheName = 1 + 1 + 2 + 2;
    const std::size_t name_length = strnlen(dns_name, buf.size());
    if (name_length > buf.size() - kBesideTheName) {
        return false;
    }
    std::string_view rest{dns_name, name_length};
    std::size_t length = 0;
    for (bool more = true; more;) {
        const std::size_t label = std::min(rest.find('.'), rest.size());
        buf[length++] = static_cast<unsigned char>(label);
        memcpy(&buf[length], rest.data(), label);
        length += label;
        more = label < rest.size();
        rest.remove_prefix(more ? label + 1 : label);
    }
    buf[length++] = 0;
    append_u16(buf, length, kTypeA);
    append_u16(buf, length, kClassInternet);
    len = length;
    return true;
}

bool parse_dns_name(std::span<const unsigned char> chunk, std::size_t ptr, DnsName &out,
                    std::size_t &len)
{
    NameText text{out, std::min(len, out.size() - 1)};
    const bool whole = append_name(chunk, ptr, text);
    len = text.end();
    return whole;
}

std::size_t make_dns_query(const char *dns_name, std::span<unsigned char, kDnsMessageSize> message)
{
    // The id is always the same and answers are not held against it: the client asks about the
    // reachability of a line, one question at a time, and keeps no state to draw ids from.
    constexpr std::array<unsigned char, kDnsHeaderSize> kHeader = {
        0xFF, 0x00,  // id
        0x01, 0x00,  // a standard query, recursion desired
        0x00, 0x01,  // one question
    };
    DnsQuestion question;
    std::size_t length;
    if (!generate_question(dns_name, question, length)) {
        return 0;
    }
    memcpy(message.data(), kHeader.data(), kHeader.size());
    memcpy(message.data() + kHeader.size(), question.data(), length);
    return kHeader.size() + length;
}

std::size_t parse_dns_answer(std::span<const unsigned char> chunk, std::span<in_addr> addresses)
{
    if (chunk.size() < kDnsHeaderSize) {
        return 0;
    }
    std::size_t at = kDnsHeaderSize;
    for (unsigned int i = read_u16(chunk, kQuestionCount); i > 0; --i) {
        if (!skip_question(chunk, at)) {
            return 0;
        }
    }
    std::size_t found = 0;
    std::size_t known = 0;  // a pointer to a name that was read already: most owners are that
    for (unsigned int i = read_u16(chunk, kAnswerCount); i > 0 && found < addresses.size(); --i) {
        if (chunk.size() - at < kRecordData) {
            break;
        }
        // Nobody needs the names, but an answer whose names lead nowhere is no answer.
        const std::size_t owner = read_u16(chunk, at);
        if (owner != known && !is_name(chunk, at)) {
            break;
        }
        known = is_pointer(chunk[at]) != 0 ? owner : 0;
        const unsigned int type = read_u16(chunk, at + kRecordType);
        const unsigned int length = read_u16(chunk, at + kRecordLength);
        at += kRecordData;
        if (length > chunk.size() - at) {
            break;
        }
        if (type == kTypeCname) {
            if (!is_name(chunk, at)) {
                break;
            }
            known = kPointerBits << 8 | at;
        } else if (type == kTypeA && length == sizeof(in_addr)) {
            memcpy(&addresses[found++], &chunk[at], sizeof(in_addr));
        }
        at += length;
    }
    return found;
}

}  // namespace prod
