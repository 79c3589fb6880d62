// SPDX-License-Identifier: MIT
#include "stories.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "support/emulation.hpp"

namespace story
{

namespace
{

constexpr useconds_t kPollPause = 50000;
constexpr int kPollsPerSecond = 20;

}  // namespace

Outcome run(const std::string &command)
{
    FILE *const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return {-1, {}};
    }
    std::string output;
    std::array<char, 4096> block{};
    for (size_t count = 0; (count = fread(block.data(), 1, block.size(), pipe)) > 0;) {
        output.append(block.data(), count);
    }
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

std::string must(const std::string &command)
{
    Outcome outcome = run(command);
    EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.output;
    return outcome.output;
}

std::string address_of(const std::string &host)
{
    return must("ip -n " + host +
                " -4 -o address show dev eth0 scope global | sed 's/.* inet //;s,/.*,,' | tr -d "
                "'\\n'");
}

void eventually(const std::string &what, const std::function<bool()> &true_at_last, int seconds)
{
    for (int poll = 0; poll < seconds * test::slowdown() * kPollsPerSecond; ++poll) {
        if (true_at_last()) {
            return;
        }
        usleep(kPollPause);
    }
    ADD_FAILURE() << "never: " << what;
}

Json Json::answer_of(const std::string &command)
{
    const std::string text = must(command);
    std::shared_ptr<cJSON> whole(cJSON_Parse(text.c_str()), cJSON_Delete);
    EXPECT_NE(whole, nullptr) << command << " printed no JSON:\n" << text;
    const cJSON *const node = whole.get();
    return {std::move(whole), node};
}

Json Json::operator[](const char *name) const
{
    return {whole_, cJSON_GetObjectItemCaseSensitive(node_, name)};
}

std::vector<Json> Json::items() const
{
    std::vector<Json> all;
    for (const cJSON *item = node_ != nullptr ? node_->child : nullptr; item != nullptr;
         item = item->next) {
        all.push_back(Json(whole_, item));
    }
    return all;
}

Json Json::where(const char *name, const std::string &value) const
{
    for (const Json &item : items()) {
        if (item[name].text() == value) {
            return item;
        }
    }
    return {whole_, nullptr};
}

std::string Json::text() const
{
    if (node_ == nullptr) {
        return {};
    }
    if (cJSON_IsString(node_)) {
        return node_->valuestring;
    }
    const std::unique_ptr<char, decltype(&free)> printed(cJSON_PrintUnformatted(node_), free);
    return printed.get();
}

double Json::number() const
{
    return strtod(text().c_str(), nullptr);
}

}  // namespace story
