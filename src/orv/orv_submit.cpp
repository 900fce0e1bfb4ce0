// The steps of a Submit, in the order in which they are called.

#include "orv_submit.h"

#include "orv.h"
#include "orv_check.h"
#include "orv_parser.h"
#include "orv_scripts.h"
#include "orv_vars.h"

orv_refusal orv_submit_rows(void)
{
  return del_vars != nullptr
             ? "Table rows have been deleted. Resubmit to confirm"
             : nullptr;
}

bool orv_submit_is_due(void)
{
  return orv_vars_changed(&cfg_vars) != nullptr || orv_always_submit_set() != 0;
}

orv_refusal orv_submit_judge(const pt_header *hdr, pt_body_item *body)
{
  if (orv_check_vars(body) == 0) {
    return "Error in configuration settings";
  }
  return orv_save_vars(&cfg_vars, hdr->check_script) == 0
             ? "Error running configuration check script"
             : nullptr;
}

orv_refusal orv_submit_save(const pt_header *hdr)
{
  orv_script_let_finish(1);
  const int saved = orv_save_vars(&cfg_vars, hdr->write_script);
  orv_script_let_finish(0);
  return saved == 0 ? "Error saving configuration" : nullptr;
}
