// SPDX-License-Identifier: MIT
// What a story about the whole device is told with: commands of the device and their JSON answers.
#pragma once

#include <cjson/cJSON.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace story
{

struct Outcome {
    int status;  // exit status, -1 when a signal ended the command
    std::string output;
};

/** Runs a shell command on the device and waits for it. */
Outcome run(const std::string &command);

/** Runs a shell command that must succeed, for what it does or for what it prints. */
std::string must(const std::string &command);

/** The IPv4 address that a host of the lab has on its LAN interface; empty when it has none. */
std::string address_of(const std::string &host);

/** Waits until @p true_at_last; the end of @p seconds is a failure that @p what explains. */
void eventually(const std::string &what, const std::function<bool()> &true_at_last,
                int seconds = 10);

/** A part of a JSON answer, alive as long as any part of that answer is. */
class Json
{
  public:
    static Json answer_of(const std::string &command);

    Json operator[](const char *name) const;
    std::vector<Json> items() const;

    /** The element of this array whose member @p name is @p value; nothing when there is none. */
    Json where(const char *name, const std::string &value) const;

    bool is_there() const { return node_ != nullptr; }

    /** A string as it stands, a number in decimal, anything else as JSON. */
    std::string text() const;
    double number() const;

  private:
    Json(std::shared_ptr<cJSON> whole, const cJSON *node) : whole_(std::move(whole)), node_(node) {}

    std::shared_ptr<cJSON> whole_;
    const cJSON *node_;
};

}  // namespace story
