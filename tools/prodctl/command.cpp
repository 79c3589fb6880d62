// SPDX-License-Identifier: MIT
#include "command.hpp"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "prod_common_debug.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Option kHelp = {"--help", nullptr, "show this help"};
constexpr Option kJson = {"--json", nullptr, "answer with one line of JSON"};
constexpr Option kVersion = {"--version", nullptr, "show the version"};

constexpr char kComplete[] = "--complete";

bool is_option(std::string_view word)
{
    // "-" and negative numbers are arguments.
    return word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9');
}

const Command *find_child(const Command &command, std::string_view name)
{
    for (const Command &child : command.children) {
        if (child.name == name) {
            return &child;
        }
    }
    return nullptr;
}

// ---- help -------------------------------------------------------------------------------------

void put_list(FILE *stream, const char *title,
              const std::vector<std::pair<std::string, const char *>> &lines)
{
    std::size_t width = 0;
    for (const auto &line : lines) {
        width = std::max(width, line.first.size());
    }
    fprintf(stream, "\n%s:\n", title);
    for (const auto &line : lines) {
        fprintf(stream, "  %-*s  %s\n", static_cast<int>(width), line.first.c_str(), line.second);
    }
}

std::string named(const Option &option)
{
    return option.value != nullptr ? format("%s %s", option.name, option.value) : option.name;
}

std::string usage_line(const std::string &path, const Command &command)
{
    std::string line = path;
    if (command.run == nullptr) {
        return line + " COMMAND";
    }
    for (const Option &option : command.options) {
        line += format(" [%s]", named(option).c_str());
    }
    if (*command.arguments != '\0') {
        line += format(" %s", command.arguments);
    }
    return line;
}

void put_help(FILE *stream, const std::string &path, const Command &command, bool root)
{
    fprintf(stream, "usage: %s\n", usage_line(path, command).c_str());
    if (command.run != nullptr && !command.children.empty()) {
        fprintf(stream, "       %s COMMAND\n", path.c_str());
    }
    fprintf(stream, "\n%s.\n", command.summary);
    if (command.details != nullptr) {
        fprintf(stream, "\n%s\n", command.details);
    }

    std::vector<std::pair<std::string, const char *>> lines;
    for (const Command &child : command.children) {
        lines.emplace_back(child.name, child.summary);
    }
    if (!lines.empty()) {
        put_list(stream, "commands", lines);
    }

    lines.clear();
    for (const Option &option : command.options) {
        lines.emplace_back(named(option), option.help);
    }
    lines.emplace_back(kJson.name, kJson.help);
    lines.emplace_back(kHelp.name, kHelp.help);
    if (root) {
        lines.emplace_back(kVersion.name, kVersion.help);
    }
    put_list(stream, "options", lines);

    if (command.run != nullptr) {
        fprintf(stream, "\nexit status:\n  0  %s\n  1  %s\n  2  wrong usage\n", command.yes,
                command.no);
    } else if (root) {
        fprintf(
            stream,
            "\nexit status:\n  0  done, or the answer is yes\n  1  failed, absent, or the answer "
            "is no\n  2  wrong usage\n\n'%s GROUP COMMAND --help' tells more.\n",
            path.c_str());
    }
}

// ---- completion -------------------------------------------------------------------------------

void offer(FILE *stream, std::string_view begun, std::string_view word)
{
    if (word.starts_with(begun)) {
        fprintf(stream, "%.*s\n", static_cast<int>(word.size()), word.data());
    }
}

void offer_modules(FILE *stream, std::string_view begun)
{
    const prod_dbg_info_t *const info = get_dbg_info();
    if (info == nullptr) {
        return;
    }
    for (const prod_dbg_cb_t &slot : info->array) {
        const std::string_view name{slot.name, strnlen(slot.name, sizeof(slot.name))};
        if (slot.valid && printable(name) == name) {  // any process may write the table
            offer(stream, begun, name);
        }
    }
}

/** The part of a "|" list at a place; the last part for places behind it. */
std::string_view part_at(std::string_view list, std::size_t place)
{
    for (; place > 0; --place) {
        const std::size_t end = list.find('|');
        if (end == std::string_view::npos) {
            break;
        }
        list.remove_prefix(end + 1);
    }
    return list.substr(0, list.find('|'));
}

bool takes_value(const Command &command, std::string_view word)
{
    return std::any_of(command.options.begin(), command.options.end(), [&](const Option &option) {
        return option.name == word && option.value != nullptr;
    });
}

/** Offers words for the last of @p words, the one that is being typed. */
void complete(FILE *stream, const Command &root, std::span<const char *const> words)
{
    const std::string_view begun = words.empty() ? "" : words.back();
    const Command *command = &root;
    std::size_t arguments = 0;
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const Command *const child = arguments == 0 ? find_child(*command, words[i]) : nullptr;
        if (child != nullptr) {
            command = child;
        } else if (!is_option(words[i])) {
            ++arguments;
        } else if (takes_value(*command, words[i])) {
            ++i;
        }
    }
    if (begun.starts_with('-')) {
        for (const Option &option : command->options) {
            offer(stream, begun, option.name);
        }
        offer(stream, begun, kJson.name);
        offer(stream, begun, kHelp.name);
        if (command == &root) {
            offer(stream, begun, kVersion.name);
        }
        return;
    }
    if (arguments == 0) {
        for (const Command &child : command->children) {
            offer(stream, begun, child.name);
        }
    }
    if (command->candidates == nullptr || static_cast<int>(arguments) >= command->max_arguments) {
        return;
    }
    std::string_view list = part_at(command->candidates, arguments);
    while (!list.empty()) {
        const std::string_view word = list.substr(0, list.find(' '));
        list.remove_prefix(std::min(list.size(), word.size() + 1));
        if (word == "@modules") {
            offer_modules(stream, begun);
        } else if (word == "@files") {
            fprintf(stream, "@files\n");
        } else {
            offer(stream, begun, word);
        }
    }
}

}  // namespace

// ---- a call -----------------------------------------------------------------------------------

void Call::complain(const char *text, va_list args) const
{
    const std::string message = vformat(text, args);
    fprintf(stderr, "%s: %s\n", path_.c_str(), printable(message).c_str());
    if (complaint_.empty()) {
        complaint_ = message;
    }
}

int Call::no(const char *text, ...) const
{
    va_list args;
    va_start(args, text);
    complain(text, args);
    va_end(args);
    return kNo;
}

int Call::usage(const char *text, ...) const
{
    va_list args;
    va_start(args, text);
    complain(text, args);
    va_end(args);
    fprintf(stderr, "Try '%s --help'.\n", path_.c_str());
    return kUsage;
}

bool Call::read_number(const char *option, int smallest, int largest,
                       std::optional<int> &value) const
{
    if (!given(option)) {
        return true;
    }
    value = number(this->value(option), smallest, largest);
    if (!value) {
        static_cast<void>(usage("%s: '%s' is no number from %d to %d", option, this->value(option),
                                smallest, largest));
    }
    return value.has_value();
}

/** Turns words into a call, or into help or a complaint. */
class Parser
{
  public:
    Parser(const Command &root, std::span<const char *const> words)
        : root_(root), command_(&root), words_(words), call_(root.name)
    {
    }

    const Command &command() const { return *command_; }
    const Call &call() const { return call_; }
    const std::string &path() const { return call_.path_; }
    bool help() const { return help_; }
    bool version() const { return version_; }

    /** @return the exit status of a wrong command line, nothing of a right one */
    std::optional<int> parse()
    {
        bool options_ended = false;
        for (; !words_.empty(); words_ = words_.subspan(1)) {
            const std::string_view word = words_.front();
            if (!options_ended && word == "--") {
                options_ended = true;
            } else if (!options_ended && is_option(word)) {
                if (!take_option(word)) {
                    return kUsage;
                }
            } else if (!options_ended && descend(word)) {
                call_.path_ += format(" %s", command_->name);
            } else {
                call_.arguments_.push_back(words_.front());
            }
        }
        if (help_ || version_) {
            return std::nullopt;
        }
        return check_count();
    }

  private:
    bool descend(std::string_view word)
    {
        const Command *const child =
            call_.arguments_.empty() ? find_child(*command_, word) : nullptr;
        if (child == nullptr) {
            return false;
        }
        command_ = child;
        return true;
    }

    bool take_option(std::string_view word)
    {
        if (word == kJson.name) {
            call_.json_ = true;
            return true;
        }
        if (word == kHelp.name || word == "-h") {
            help_ = true;
            return true;
        }
        if (command_ == &root_ && word == kVersion.name) {
            version_ = true;
            return true;
        }
        const std::size_t equals = word.find('=');
        for (const Option &option : command_->options) {
            if (word.substr(0, equals) == option.name) {
                return take_value(option, equals);
            }
        }
        call_.usage("unknown option '%s'", words_.front());
        return false;
    }

    bool take_value(const Option &option, std::size_t equals)
    {
        const char *value = nullptr;
        if (equals != std::string_view::npos) {
            value = words_.front() + equals + 1;
        } else if (option.value != nullptr && words_.size() > 1) {
            words_ = words_.subspan(1);
            value = words_.front();
        }
        if ((value == nullptr) != (option.value == nullptr)) {
            call_.usage(value == nullptr ? "option %s needs a value" : "option %s takes no value",
                        option.name);
            return false;
        }
        call_.options_.push_back({option.name, value});
        return true;
    }

    std::optional<int> check_count() const
    {
        const auto count = static_cast<int>(call_.count());
        if (!command_->children.empty() && (count > 0 || command_->run == nullptr)) {
            return count > 0 ? call_.usage("unknown command '%s'", call_[0])
                             : call_.usage("a command is missing");
        }
        if (count < command_->min_arguments || count > command_->max_arguments) {
            return call_.usage(
                "%s, expected: %s",
                count < command_->min_arguments ? "an argument is missing" : "too many arguments",
                *command_->arguments != '\0' ? command_->arguments : "none");
        }
        return std::nullopt;
    }

    const Command &root_;
    const Command *command_;
    std::span<const char *const> words_;
    Call call_;
    bool help_ = false;
    bool version_ = false;
};

int run(const Command &root, std::span<const char *const> words, Console &console)
{
    if (!words.empty() && strcmp(words.front(), kComplete) == 0) {
        complete(console.stream(), root, words.subspan(1));
        return kYes;
    }
    Parser parser{root, words};
    if (const std::optional<int> wrong = parser.parse()) {
        return *wrong;
    }
    const Command &command = parser.command();
    if (parser.help()) {
        put_help(console.stream(), parser.path(), command, &command == &root);
        return kYes;
    }
    if (parser.version()) {
        fprintf(console.stream(), "%s %s\n", root.name, PRODCTL_VERSION);
        return kYes;
    }

    cJSON *const answer = cJSON_CreateObject();
    const Call &call = parser.call();
    const int status = command.run(call, answer);
    if (status != kUsage && call.json()) {
        if (answer->child == nullptr && !call.complaint().empty()) {
            add_text(answer, "error", call.complaint());
        }
        char *const line = cJSON_PrintUnformatted(answer);
        fprintf(console.stream(), "%s\n", line);
        cJSON_free(line);
    } else if (status != kUsage && answer->child != nullptr && command.show != nullptr) {
        Page page{console.stream(), console.colour()};
        command.show(answer, page);
    }
    cJSON_Delete(answer);
    return status;
}

}  // namespace prodctl
