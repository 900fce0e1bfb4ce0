// Fields that hold a secret and whose names do not say so: pages draw them in
// clear, and logs and dumps have them.

#include <algorithm>

#include "rules.h"
#include "script_names.h"
#include "text.h"

// What the form's scripts call a secret, in small letters.
// The author has said so by these calls, whatever the field is called. A
// pattern or a second field among their words is no item's name, as a rule, and
// harms nothing.
static std::set<std::string> named_secrets(const device &dev, const form &f)
{
  static const word_set takers = {"orv_secret", "orv_show_secrets",
                                  "orv_show_hash", "orv_take_hash"};
  std::set<std::string> names;
  for (const std::string &file : f.runs) {
    const script &s = dev.scripts.at(file);
    for (const bash_command &command : s.code.commands) {
      std::vector<literal_name> given;
      for (size_t i = 1; i < command.words.size() &&
                         takers.count(command.words[0].plain) != 0;
           i++) {
        add_literals(s, command.words[i], &given);
      }
      for (const literal_name &name : given) {
        names.insert(lower(name.name));
      }
    }
  }
  return names;
}

// Whether the label says that a secret is typed here.
// The last word decides: "Password" and "Wi-Fi password" ask for one, "Password
// expires after" and "Passwords kept" do not. A number is none either, but for
// a PIN, which consists of digits.
static bool is_labelled(const form_item &item)
{
  static const char *const words[] = {"password", "passphrase", "pin"};
  const form_line *label = attribute(item, "label");
  const form_line *check = attribute(item, "check");
  const std::string text = lower(label != nullptr ? label->text : "");
  const std::string last = text.substr(text.rfind(' ') + 1);
  const std::string judged = lower(check != nullptr ? check->text : "");
  return (judged.find("decimal") == std::string::npos || last == "pin") &&
         judged.find("number") == std::string::npos &&
         std::find(std::begin(words), std::end(words), last) != std::end(words);
}

// A field is shown as the hash of a secret, while the form has a secret by its
// name that no such call names: the call is wrong and not the field.
// Such a call names the secret first. To tell the author to rename the field
// would lead away from the mistake.
static bool check_hash_shown(const device &dev, const form &f,
                             const form_item &item, findings *found)
{
  const auto secret =
      std::find_if(f.items.begin(), f.items.end(), [](const form_item &other) {
        return other.type == PT_TEXT_FIELD && is_secret(other.name);
      });
  for (const std::string &file : f.runs) {
    const script &s = dev.scripts.at(file);
    for (const bash_command &command : s.code.commands) {
      if (secret != f.items.end() && command.words.size() > 1 &&
          (command.words[0].plain == "orv_show_hash" ||
           command.words[0].plain == "orv_take_hash" ||
           command.words[0].plain == "orv_show_secrets") &&
          lower(command.words[1].plain) == lower(item.name)) {
        report(found, *s.file, command.words[1].line, command.words[1].column,
               "secret-name",
               in_quotes(item.name) +
                   " is no secret by its name (did you mean " +
                   in_quotes(secret->name) + "?)");
        return true;
      }
    }
  }
  return false;
}

void check_secret_names(const device &dev, findings *found)
{
  for (const auto &entry : dev.forms) {
    const form &f = entry.second;
    const std::set<std::string> named = named_secrets(dev, f);
    for (const form_item &item : f.items) {
      const bool taken = named.count(lower(item.name)) != 0;
      // Only what is typed: boxes and lists show their values to everybody.
      if (item.type == PT_TEXT_FIELD && !is_secret(item.name) &&
          (taken || is_labelled(item)) &&
          !check_hash_shown(dev, f, item, found)) {
        report(
            found, f, *item.lines.front(), 0, "secret-name",
            in_quotes(item.name) +
                (taken ? " is a secret to the script" : " asks for a secret") +
                ", and its name does not say so: the page shows what is"
                " typed; let it end in \"_password\", \"_passphrase\","
                " \"_pin\" or the like");
      }
    }
  }
}
