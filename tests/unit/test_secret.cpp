// Which values are secret, for pages, tools and the store.

#include "orv_secret.h"

#include "form_fixture.h"

struct secret_name {
  const char *name;
  bool is_secret;
};

// clang-format off
static const secret_name names[] = {
  {"password", true},       {"wl_passphrase", true},  {"Admin_PassWd", true},
  {"oldpassword", true},    {"us_password12", true},  {"wifi_psk", true},
  {"api_TOKEN", true},      {"sim_pin0", true},       {"a_b_secret", true},
  {"_pin", true},
  {"pin", false},           {"psk", false},           {"token", false},
  {"secret", false},        {"spin", false},          {"a_spin", false},
  {"mysecret", false},      {"pin_length", false},    {"password_age", false},
  {"passwords", false},     {"a_pin_", false},        {"a_1pin", false},
  {"pass", false},          {"12", false},            {"", false},
};
// clang-format on

using Secret = Forms;

TEST_F(Secret, IsRecognisedByTheName)
{
  for (const auto &[name, is_secret] : names) {
    EXPECT_EQ(orv_is_secret_name(name), is_secret) << name;
  }
}

TEST_F(Secret, IsATextNeverABoxOrAList)
{
  const Items body = items("field a_pin;fixed a_pin;checkbox a_pin;"
                           "select a_pin;choice 1 One;iselect a_pin s");
  string told;
  for (const pt_body_item *itm = body.get(); itm != nullptr; itm = itm->next) {
    told += orv_is_secret(itm) ? '+' : '-';
  }
  EXPECT_EQ(told, "++---");
}
