// SPDX-License-Identifier: MIT
// The group system: figures, versions, restart and factory restore.
#include "groups.hpp"
#include "prod_common_system.h"
#include "prod_common_systool.h"

namespace prodctl
{

int run_memory(const Call &call, cJSON *answer)
{
    int used = 0;
    const int free_kb = systool_get_memfree();
    if (systool_get_memInfo(&used) != HLX_OK || free_kb < 0) {
        return call.no("the kernel does not tell about its memory");
    }
    add_number(answer, "used_percent", used);
    add_number(answer, "free_kb", free_kb);
    return kYes;
}

void show_memory(const cJSON *answer, Page &page)
{
    page.fields({{"used", format("%d %%", int_of(answer, "used_percent"))},
                 {"free", format("%d KiB", int_of(answer, "free_kb"))}});
}

int run_cpu(const Call &, cJSON *answer)
{
    add_number(answer, "percent", systool_get_cpu_percent());
    return kYes;
}

void show_cpu(const cJSON *answer, Page &page)
{
    page.line({format("%d %%", int_of(answer, "percent"))});
}

int run_versions(const Call &, cJSON *answer)
{
    char product[PROD_POLICY_VERSION_SIZE] = "";
    char hardware[PROD_POLICY_VERSION_SIZE] = "";
    char policies[PROD_POLICY_VERSION_SIZE] = "";
    get_prod_version(product, sizeof(product));
    get_hard_version(hardware, sizeof(hardware));
    get_policy_version(policies, sizeof(policies));
    add_text(answer, "product", product);
    add_number(answer, "build", get_svn_version());
    add_text(answer, "hardware", hardware);
    add_text(answer, "policies", policies);
    return kYes;
}

void show_versions(const cJSON *answer, Page &page)
{
    page.fields({{"product", text_of(answer, "product")},
                 {"build", format("%d", int_of(answer, "build"))},
                 {"hardware", text_of(answer, "hardware")},
                 {"policies", text_of(answer, "policies")}});
}

int run_reboot(const Call &, cJSON *answer)
{
    systool_reboot_thread(nullptr);  // here and now: a thread would end with this process
    add_flag(answer, "rebooting", true);
    return kYes;
}

int run_restore(const Call &call, cJSON *answer)
{
    if (!call.given("--yes")) {
        return call.usage("this forgets all settings; confirm it with --yes");
    }
    systool_restore();
    add_flag(answer, "restored", true);
    return kYes;
}

}  // namespace prodctl
