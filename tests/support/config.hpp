// SPDX-License-Identifier: MIT
// A configuration store in this process's memory, for programs linked with test_config: GetValue,
// SetValue, UnSetValue, CommitCfm and RestoreValue of the platform are answered from a map that
// the test fills and looks at. It keeps the contract of platform/cfm.h: impossible keys and
// values are refused, and no more than 2307 characters are ever delivered.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/cfm.h"

namespace test
{

using Config = std::map<std::string, std::string>;

/** The working copy. Writing here is neither counted nor checked. */
Config &config();

/** What the last CommitCfm() made persistent. */
Config &committed_config();

/** What RestoreValue() puts into the working copy. */
Config &factory_defaults();

/** Forgets everything of this store: values, counts, faults. */
void reset_config();

/** A fixture's member or a test's local that starts with an empty store and leaves one. */
class FreshConfig
{
  public:
    FreshConfig() { reset_config(); }
    ~FreshConfig() { reset_config(); }
    FreshConfig(const FreshConfig &) = delete;
    FreshConfig &operator=(const FreshConfig &) = delete;
};

/** The longest value the store holds: 2307 times @p c. */
std::string longest_value(char c = 'x');

/**
 * While it lives, every key that is absent from the map reads as this value: what a unit makes of
 * hostile text in any key it reads.
 */
class EveryKeyReads
{
  public:
    explicit EveryKeyReads(std::string value);
    ~EveryKeyReads();
    EveryKeyReads(const EveryKeyReads &) = delete;
    EveryKeyReads &operator=(const EveryKeyReads &) = delete;
};

/** How often the store was called. */
struct ConfigCalls {
    int reads = 0;     // GetValue
    int writes = 0;    // SetValue
    int removals = 0;  // UnSetValue
    int commits = 0;   // CommitCfm
    int restores = 0;  // RestoreValue
};
ConfigCalls &config_calls();

/** The keys of all reads so far, in order. */
const std::vector<std::string> &keys_read();

/** Calls that fail while set: they change nothing and answer 0. */
struct ConfigFaults {
    bool reads = false;
    bool writes = false;
    bool removals = false;
    bool commits = false;
    bool restores = false;
};
ConfigFaults &config_faults();

}  // namespace test
