// For tests of forms: templates, and variable lists as text.

#ifndef FORM_FIXTURE_H
#define FORM_FIXTURE_H

#include "fixture.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_output.h"
#include "orv_parser.h"
#include "orv_vars.h"

using Header = std::unique_ptr<pt_header, orv_releaser<orv_free_header>>;
using Items = std::unique_ptr<pt_body_item, orv_releaser<orv_free_body>>;

// All variables as "NAME{d=.. u=.. c=.. o=..}", without slots that are not set.
inline string stored()
{
  string all;
  const auto slot = [](const char *name, const char *value) {
    return value != nullptr ? name + string(value) : "";
  };
  for (const auto &[list, head] :
       {std::pair(" ", cfg_vars), std::pair(" err:", err_vars),
        std::pair(" del:", del_vars)}) {
    for (const orv_var *var = head; var != nullptr; var = var->next) {
      const string values =
          slot(" d=", var->d_value) + slot(" u=", var->u_value) +
          slot(" c=", var->c_value) + slot(" o=", var->o_value);
      all += slot(list, var->name) + "{" + values.substr(!values.empty()) + "}";
    }
  }
  return all.substr(!all.empty());
}

inline void forget()
{
  orv_free_vars(&cfg_vars);
  orv_free_vars(&err_vars);
  orv_free_vars(&del_vars);
  orv_free_vars(&failed_cells);
}

// Stores script output; ";" ends a line, too.
inline int load(string lines)
{
  std::replace(lines.begin(), lines.end(), ';', '\n');
  FILE *fp = fmemopen(text(lines), lines.size(), "r");
  const int result = orv_load_vars_fp(fp);
  fclose(fp);
  return result;
}

class Forms : public Scratch
{
protected:
  void TearDown() override
  {
    Scratch::TearDown();
    forget();
    orv_output_cleanup();
  }

  // The header of a template with that text, in the file "DIR/form".
  Header parse(const string &content, const string &form = "form",
               const char *subitem = nullptr) const
  {
    write_file(dir + "/" + form, content);
    return Header(
        orv_parse_header(text(dir + "/" + form), const_cast<char *>(subitem)));
  }

  // The items of a body; ";" ends a line, too.
  Items items(string body) const
  {
    std::replace(body.begin(), body.end(), ';', '\n');
    const Header hdr = parse("title T\nbody\n" + body + "\n");
    return Items(orv_parse_body(hdr.get()));
  }
};

#endif
