// SPDX-License-Identifier: MIT
#include "prod_common_cfm.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <new>

#include "internal/config.hpp"
#include "internal/console.hpp"
#include "internal/log.hpp"
#include "internal/policy.hpp"
#include "platform/debug.h"
#include "platform/process.h"

using namespace prod;

// The store's own function: this library is linked with --wrap=SetValue.
extern "C" int __real_SetValue(const char *key, const char *value);

namespace
{

constexpr const char *kCfm = "cfm";

// Sizes of numbers as text, which decide where a long one is cut.
constexpr std::size_t kIntSize = 21;
constexpr std::size_t kDoubleSize = 21;
constexpr std::size_t kUint64Size = 43;
constexpr std::size_t kReadUint64Size = 21;
constexpr std::size_t kReadDoubleSize = 43;

/** Real changes of the store by this process; only zero against non-zero is ever asked. */
constinit std::atomic<int> cfm_val_change = 0;

void count_change()
{
    cfm_val_change.fetch_add(1, std::memory_order_relaxed);
}

/** Shows which code path changed which key from which value to which. */
void trace_write(const char *key, const char *old_value, const char *value)
{
    // No longer key or value can be stored.
    console_print("\033[1;%d;%dm#### [SET] %.511s: %s -> %.2307s\n\033[0m", kBackground, kBlue, key,
                  old_value, value);
    show_backtrace();
}

static_assert(CFM_KEY_MAX == 511 && CFM_VALUE_SIZE == 2308, "the trace cuts there");

// ---- policies --------------------------------------------------------------------------------

// The statements that made the databases on devices in the field, odd blanks and words included.
// The types are hints to SQLite and nothing more.
constexpr const char *kRadioColumns =
    "enable char(1),name char(34),RF_basic_setting_24g char(1),"
    "expand_channel_24g char(1),        country_code_24g char(1),"
    "network_mode_24g char(1), bandwidth_24g char(1),TXpower_24g char(1),"
    "        channel_24g char(1),RF_basic_setting_5g char(1),expand_channel_5g char(1),"
    "country_code_5g char(1),        network_mode_5g char(1), bandwidth_5g char(1),"
    "TXpower_5g char(1),channel_5g char(1),        rssi_24g int,rssi_5g int,"
    "sta_timeout_24g int,sta_timeout_5g int";
constexpr const char *kWirelessColumns =
    "enable char(1),name char(34),ssid_id char(1),wl_basic_set char(1),"
    "        client_number char(1),vlan_id smallint,ssid char(64),ssid_length char(1),"
    "        secure_mode char(1),auth_type char(1),key char(65),key_length char(1),"
    "        key_time int,radius_server interger,radius_port smallint,"
    "        mult2uni_en char(1),broad_reply_en char(1),cn_format char(1),"
    "qos_type char(1),auto_allBandwidth int,auto_up_max int,        auto_down_max int,"
    "hand_ssid_up_max int,hand_ssid_down_max int,hand_user_up_max int,"
    "hand_user_down_max int";
constexpr const char *kRebootColumns =
    "enable char(1), led_status char(1),name char(64),reboot_en char(1),"
    "        reboot_type char(1),time smallint, recog_en char(1), broad_en char(1)";
constexpr const char *kVlanColumns =
    "enable interger ,name char(32),open_qvlan interger,qvlan_pvid interger,"
    "manage_vlan interger         ,lan0_vlanid interger,lan1_vlanid interger,"
    "lan2_vlanid interger,qvlan_truck_port char(10)";
constexpr const char *kDeployColumns =
    "enable interger,name char(64),penetration interger,deploy interger,drivpwr interger,"
    "        beacon interger, lead_code interger, short_gi interger,"
    " force_speed interger, suppo_speed interger";

constexpr std::size_t kLongestCreate = 1152;

constexpr const char *kDatabase = PROD_POLICY_DATABASE;

using Database = std::unique_ptr<sqlite3, Closer<sqlite3_close>>;
using ErrorText = std::unique_ptr<char, Closer<sqlite3_free>>;

/** The policy database, made when it is missing; nullptr when it cannot be opened. */
Database open_database()
{
    sqlite3 *handle = nullptr;
    const int rc = sqlite3_open(kDatabase, &handle);
    Database database{handle};  // also a failure may leave a handle
    if (rc != SQLITE_OK) {
        database.reset();
    }
    return database;
}

/** A table as it is read, row by row into its file, and emptied. */
struct PolicyTable {
    const char *query;
    int (*callback)(void *, int, char **, char **);
    const char *empty;
};
constexpr PolicyTable kTables[] = {
    {"select * from wl_basic_policy", wl_policy_callback, "delete from wl_basic_policy"},
    {"select * from wl_radio_policy", rf_policy_callback, "delete  from wl_radio_policy"},
    {"select * from reboot_policy", reboot_policy_callback, "delete  from reboot_policy"},
    {"select * from wl_deploy_policy", wl_deploy_policy_callback, "delete  from wl_deploy_policy"},
    {"select * from qvlan_policy", qvlan_policy_callback, "delete  from qvlan_policy"},
};

constexpr PolicyKind kInsertOrder[] = {kWirelessPolicy, kRebootPolicy, kRadioPolicy, kDeployPolicy,
                                       kVlanPolicy};

int append_row(const PolicyKind &kind, int count, char **values, char **names)
{
    if (count > 0 && (values == nullptr || names == nullptr)) {
        return -1;
    }
    void *const block = malloc(sizeof(PolicyRecord));
    if (block == nullptr) {
        return -1;
    }
    const Allocated<PolicyRecord> record{new (block) PolicyRecord{kind.prefix}};
    const Stream file{fopen(kind.file, "a+e")};
    if (file == nullptr) {
        return -1;
    }
    for (int i = 0; i < count; ++i) {
        record->add(names[i], values[i]);
    }
    fprintf(file.get(), "\r\n%s", record->c_str());
    return 0;
}

/** Appends all rows to their files; false at the first table that cannot be read. */
bool append_tables()
{
    const Database database = open_database();
    return database != nullptr &&
           std::all_of(std::begin(kTables), std::end(kTables), [&](const PolicyTable &table) {
               char *message = nullptr;
               const int rc =
                   sqlite3_exec(database.get(), table.query, table.callback, nullptr, &message);
               const ErrorText owner{message};
               return rc == SQLITE_OK;
           });
}

/** An SQL statement; it grows with the policies that it holds. */
class Statement
{
  public:
    Statement() : text_(static_cast<char *>(malloc(PROD_POLICY_TEXT_SIZE))) {}

    /** False when there is no memory for an ordinary one. */
    explicit operator bool() const { return text_ != nullptr; }
    char *c_str() const { return text_.get(); }

    void clear() { length_ = 0; }

    /** False when the memory cannot be had; the statement is then as it was. */
    bool append(std::string_view text)
    {
        if (length_ + text.size() >= room_ && !grow(2 * (length_ + text.size()))) {
            return false;
        }
        copy_text(text_.get() + length_, room_ - length_, text);
        length_ += text.size();
        return true;
    }

    void drop_last() { text_.get()[--length_] = '\0'; }

  private:
    bool grow(std::size_t room)
    {
        const auto larger = static_cast<char *>(realloc(text_.get(), room));
        if (larger == nullptr) {
            return false;
        }
        [[maybe_unused]] const char *const old = text_.release();
        text_.reset(larger);
        room_ = room;
        return true;
    }

    Allocated<char> text_;
    std::size_t length_ = 0;
    std::size_t room_ = PROD_POLICY_TEXT_SIZE;
};

/** Runs a statement of an upload and tells a failure. */
bool execute(sqlite3 *database, const char *statement, Site site)
{
    char *message = nullptr;
    const int rc = sqlite3_exec(database, statement, nullptr, nullptr, &message);
    const ErrorText owner{message};
    if (rc == SQLITE_OK) {
        return true;
    }
    printf("%s,%d,errmsg=%s,ret=%d\n", site.func, site.line, or_null(message), rc);
    return false;
}

bool empty_tables(sqlite3 *database, Site site)
{
    return std::all_of(std::begin(kTables), std::end(kTables), [&](const PolicyTable &table) {
        return execute(database, table.empty, site);
    });
}

/** The statement that inserts all records of a kind; false when memory runs out. */
bool assemble(Statement &statement, const PolicyKind &kind)
{
    statement.clear();
    bool whole = statement.append(Text<64>{"insert into %s values", kind.table}.view());
    PolicyReader records{kind.file, kind.prefix};
    for (auto group = records.next(); whole && group != nullptr; group = records.next()) {
        whole = statement.append(group->view());
    }
    // The comma of the last record. Without any it is a letter of "values", and SQLite says so.
    statement.drop_last();
    return whole;
}

void insert_policies(sqlite3 *database, Site site)
{
    Statement statement;
    bool has_memory = static_cast<bool>(statement);
    for (const PolicyKind &kind : kInsertOrder) {
        has_memory = has_memory && assemble(statement, kind);
        if (!has_memory) {
            puts("malloc failed");
            return;
        }
        execute(database, statement.c_str(), site);
    }
}

/** @param may_exist  a table that is there already is no failure */
PAV_RET create_table(sqlite3 *database, const char *table, const char *columns, Site site,
                     bool may_exist = false)
{
    const Text<kLongestCreate> statement{"create table if not exists %s(%s)", table, columns};
    char *message = nullptr;
    const int rc = sqlite3_exec(database, statement.c_str(), nullptr, nullptr, &message);
    const ErrorText owner{message};
    if (rc == SQLITE_OK ||
        (may_exist && message != nullptr && strstr(message, "already exists") != nullptr)) {
        return PAV_RET_OK;
    }
    // The file name is the one that operators look for.
    printf("Error->%s: %s(%d)--Create database failue ,Error code:%d,Reason:%s\n",
           "src/prod_common_cfm.c", site.func, site.line, rc, or_null(message));
    return PAV_RET_ERROR;
}

}  // namespace

void prod_cfm_init(void)
{
    cfm_val_change.store(0, std::memory_order_relaxed);
}

int prod_cfm_is_change(void)
{
    return cfm_val_change.load(std::memory_order_relaxed) != 0 ? 1 : 0;
}

int prod_cfm_get_val(const char *name, char *value)
{
    return GetValue(name, value);
}

int prod_cfm_get_fmt_val(const char *fmt, char *value, ...)
{
    va_list args;
    va_start(args, value);
    const auto key = format_key(fmt, args);
    va_end(args);
    return prod_cfm_get_val(key.c_str(), value);
}

int prod_cfm_unset_val(const char *key)
{
    if (key == nullptr || ConfigValue{key}.empty()) {
        return 0;
    }
    count_change();
    UnSetValue(key);
    return 1;
}

int prod_cfm_set_val(const char *key, const char *val)
{
    if (key == nullptr || val == nullptr || ConfigValue{key} == val) {
        return 0;
    }
    // Whether the store takes it is not asked: what counts is that the value was another.
    __wrap_SetValue(key, val);
    count_change();
    return 1;
}

int prod_cfm_set_fmt_val(const char *fmt, const char *value, ...)
{
    if (fmt == nullptr) {
        return 0;
    }
    va_list args;
    va_start(args, value);
    const auto key = format_key(fmt, args);
    va_end(args);
    return prod_cfm_set_val(key.c_str(), value);
}

int set_if_changed(const char *pMibName, const char *pNewMibValue, char *pOldMibValue)
{
    if (pMibName == nullptr || pNewMibValue == nullptr || pOldMibValue == nullptr) {
        return -1;
    }
    GetValue(pMibName, pOldMibValue);
    if (strcmp(pNewMibValue, pOldMibValue) == 0) {
        return 0;
    }
    prod_cfm_set_val(pMibName, pNewMibValue);
    return 1;
}

int set_fmt_val_if_changed(const char *fmt, const char *pNewMibValue, ...)
{
    if (fmt == nullptr || pNewMibValue == nullptr) {
        return 0;
    }
    va_list args;
    va_start(args, pNewMibValue);
    const auto key = format_key(fmt, args);
    va_end(args);
    if (ConfigValue{key.c_str()} == pNewMibValue) {
        return 0;
    }
    prod_cfm_set_val(key.c_str(), pNewMibValue);
    return 1;
}

int prod_cfm_get_int_val(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    return config_int(key.c_str());
}

u64 prod_cfm_get_uint_val(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    return static_cast<u64>(ConfigValue{key.c_str(), kReadUint64Size}.to_long_long());
}

double prod_cfm_get_double_val(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    return ConfigValue{key.c_str(), kReadDoubleSize}.to_double();
}

int prod_cfm_set_int_val(const char *name, int value)
{
    return prod_cfm_set_val(name, Text<kIntSize>{"%d", value}.c_str());
}

int prod_cfm_set_fmt_int_val(const char *fmt, int value, ...)
{
    if (fmt == nullptr) {
        return 0;
    }
    va_list args;
    va_start(args, value);
    const auto key = format_key(fmt, args);
    va_end(args);
    return prod_cfm_set_int_val(key.c_str(), value);
}

int prod_cfm_set_double_val(const char *name, double value)
{
    return prod_cfm_set_val(name, Text<kDoubleSize>{"%f", value}.c_str());
}

int prod_cfm_set_uint64_val(const char *name, u64 value)
{
    return prod_cfm_set_val(name, Text<kUint64Size>{"%llu", value}.c_str());
}

int prod_cfm_commit(void)
{
    return CommitCfm();
}

int __wrap_SetValue(const char *key, const char *value)
{
    if (key == nullptr || value == nullptr) {
        return 0;
    }
    const ConfigValue old_value{key};
    if (old_value == value) {
        return 1;
    }
    if (dbg_enabled(kCfm, PROD_DBG_INFO)) {
        trace_write(key, old_value.c_str(), value);
    }
    return __real_SetValue(key, value);
}

int lanx_to_sw_port(int lanid)
{
    return lanid;
}

int wanid_to_sw_port(int wanid)
{
    return wanid;
}

char *encode_sql_ssid(const char *ssid, int ssid_len, char *encode_ssid)
{
    if (ssid == nullptr || ssid_len == 0 || encode_ssid == nullptr) {
        return nullptr;
    }
    char *out = encode_ssid;
    for (int i = 0; i < ssid_len; ++i) {
        if (ssid[i] == '\'') {
            *out++ = '\'';
        }
        *out++ = ssid[i];
    }
    return encode_ssid;  // not terminated: deliberate, the caller's buffer is zeroed
}

// ---- policies --------------------------------------------------------------------------------

int wl_policy_callback(void *, int n_column, char **column_value, char **column_name)
{
    return append_row(kWirelessPolicy, n_column, column_value, column_name);
}

int rf_policy_callback(void *, int n_column, char **column_value, char **column_name)
{
    return append_row(kRadioPolicy, n_column, column_value, column_name);
}

int reboot_policy_callback(void *, int n_column, char **column_value, char **column_name)
{
    return append_row(kRebootPolicy, n_column, column_value, column_name);
}

int wl_deploy_policy_callback(void *, int n_column, char **column_value, char **column_name)
{
    return append_row(kDeployPolicy, n_column, column_value, column_name);
}

int qvlan_policy_callback(void *, int n_column, char **column_value, char **column_name)
{
    return append_row(kVlanPolicy, n_column, column_value, column_name);
}

PAV_RET prod_download_ac_policy(void)
{
    const bool existed = access(kDatabase, F_OK) == 0;
    if (access(kDatabase, R_OK) != 0) {
        doSystemCmd("cp /webroot/Dcg_database.db /cfg/s_brcmnand");
    }
    const bool done = append_tables();
    if (!done && !existed) {
        // Half a copy, or a database without tables, would be in the way of the next one.
        unlink(kDatabase);
    }
    return done ? PAV_RET_OK : PAV_RET_ERROR;
}

PAV_RET upload_ac_policy(void)
{
    const bool existed = access(kDatabase, F_OK) == 0;
    const Database database = open_database();
    if (database == nullptr) {
        puts("sql open error");
        return PAV_RET_ERROR;
    }
    if (!existed) {
        puts("policy database file isn't exist! Create it now.");
        sqlite_create_policy_table(database.get());
    } else if (!empty_tables(database.get(), PROD_SITE)) {
        return PAV_RET_OK;
    }
    insert_policies(database.get(), PROD_SITE);
    return PAV_RET_OK;
}

PAV_RET sqlite_create_table_rf_policy(sqlite3 *policy_db)
{
    create_table(policy_db, kRadioPolicy.table, kRadioColumns, PROD_SITE);
    return PAV_RET_OK;
}

PAV_RET sqlite_create_table_wl_policy(sqlite3 *policy_db)
{
    create_table(policy_db, kWirelessPolicy.table, kWirelessColumns, PROD_SITE);
    return PAV_RET_OK;
}

PAV_RET sqlite_create_table_reboot_policy(sqlite3 *policy_db)
{
    create_table(policy_db, kRebootPolicy.table, kRebootColumns, PROD_SITE);
    return PAV_RET_OK;
}

PAV_RET sqlite_create_table_qvlan_policy(sqlite3 *policy_db)
{
    create_table(policy_db, kVlanPolicy.table, kVlanColumns, PROD_SITE);
    return PAV_RET_OK;
}

PAV_RET sqlite_create_table_wl_deploy_policy(sqlite3 *policy_db)
{
    return create_table(policy_db, kDeployPolicy.table, kDeployColumns, PROD_SITE, true);
}

PAV_RET sqlite_create_policy_table(sqlite3 *policy_db)
{
    sqlite_create_table_rf_policy(policy_db);
    sqlite_create_table_wl_deploy_policy(policy_db);
    sqlite_create_table_wl_policy(policy_db);
    sqlite_create_table_reboot_policy(policy_db);
    sqlite_create_table_qvlan_policy(policy_db);
    return PAV_RET_OK;
}

void assem_policy_data(const char *path, const char *table, char *out_buf)
{
    if (path == nullptr || table == nullptr || out_buf == nullptr) {
        return;
    }
    std::size_t length = strnlen(out_buf, PROD_POLICY_TEXT_SIZE);
    PolicyReader records{path, table};
    while (const PolicyReader::Group *const group = records.next()) {
        if (length + group->size() < PROD_POLICY_TEXT_SIZE) {
            copy_text(out_buf + length, PROD_POLICY_TEXT_SIZE - length, group->view());
            length += group->size();
        }
    }
}
