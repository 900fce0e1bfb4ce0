// What a form, its scripts and its page can hold at most, each with its reason.
// What goes beyond is cut, left out or refused where that is read or drawn.

#ifndef ORV_LIMITS_H
#define ORV_LIMITS_H

// --- what is read ------------------------------------------------------------

// Bytes of a line of a template or of what a script says, its end included:
// such lines are written by hand, and a longer one goes on as the next line.
constexpr int ORV_LINE_MAX = 249;

// Of these, name and value of what a script reports, NAME="VALUE": what is
// longer could be stored and never shown again.
constexpr int ORV_REPORTED_MAX = ORV_LINE_MAX - 3;

// Characters of a name built of a template's name and a number; those of all
// rows stand on the stack while a table is drawn.
constexpr int ORV_NAME_MAX = 52;
constexpr int ORV_NAME_SIZE = ORV_NAME_MAX + 1;

// Of these the page's hidden fields take a letter and "_" in front of a name.
constexpr int ORV_NAME_PREFIX = 2;

// --- what is drawn -----------------------------------------------------------

// Rows of a table that the store and the scripts' library keep: twice what
// anybody enters by hand, and a page of them is still quick.
constexpr int ORV_STORED_ROWS_MAX = 100;

// Digits of the number of such a row, counted from 0.
constexpr int orv_digits(int number)
{
  return number < 10 ? 1 : 1 + orv_digits(number / 10);
}
constexpr int ORV_STORED_ROW_DIGITS = orv_digits(ORV_STORED_ROWS_MAX - 1);

// Columns of a table: more do not fit on any page.
constexpr int ORV_COLUMNS_MAX = 20;

// Rows of a table and entries of a dynamic list or menu: names cut at their
// buffer would otherwise repeat for ever.
constexpr int ORV_ROWS_MAX = 50000;

// Conditions inside each other, on the page and while it is checked: far
// beyond any real form.
constexpr int ORV_CONDITIONS_MAX = 20;

// Characters of the address of a menu's or a bar's entry.
constexpr int ORV_ADDRESS_MAX = 99;

// Entries of a navigation bar, which stands in one line, and the characters of
// their labels.
constexpr int ORV_BAR_MAX = 6;
constexpr int ORV_BAR_LABEL_MAX = 29;

// Characters of a message with a column's label in front.
constexpr int ORV_LABELLED_MAX = 99;

#endif
