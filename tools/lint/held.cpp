// Whether a value was looked at where a command stands.
//
// Behind a test in the same function the place decides.  What a function has
// looked at as a whole counts for all that others do, whenever it was called;
// what its caller has looked at counts in a function if every call stands
// behind that.

#include <algorithm>

#include "flow.h"
#include "judged.h"

// Calls of calls are followed no further than this.
static constexpr int CALLERS_DEEP = 5;

// One command, found among those of its script.
struct standing {
  const script *s;
  size_t index;
  const bash_command &command;
};

static standing standing_of(const context &c, const bash_command &command)
{
  standing at = {nullptr, 0, command};
  at.s = owner_of(c, command, &at.index);
  return at;
}

static bool is_same_function(const judged_place &place, const standing &at)
{
  return place.s == at.s && place.function == at.command.function;
}

static bool holds_here(const judged_place &place, const standing &at)
{
  return is_same_function(place, at) && at.index >= place.from &&
         at.index <= place.to &&
         is_inside(*at.s, at.command.branch, place.branch);
}

// The calls of the function that the command is one of, NULL where none is
// written out.
static const std::vector<const bash_command *> *
calls_of(const context &c, const bash_command &command)
{
  const auto calls = c.calls.find(command.function);
  return command.function.empty() || calls == c.calls.end() ? nullptr
                                                            : &calls->second;
}

// Without a test for messages in the whole script nothing is calm, whoever
// calls.
bool is_calm(const context &c, const bash_command &command, size_t since)
{
  const auto places = c.judged.find(NO_MESSAGE);
  if (places == c.judged.end() || c.calm.count(command.function) != 0) {
    return places != c.judged.end();
  }
  const standing at = standing_of(c, command);
  return std::any_of(places->second.begin(), places->second.end(),
                     [&](const judged_place &place) {
                       return place.s == nullptr ||
                              (place.test >= since && holds_here(place, at));
                     });
}

// Whether the place says it for the command, whoever calls its function.
// A test that only gives a message lets a wrong value go on, so it counts
// behind a later test that there was none.
static bool holds_at(const context &c, const judged_place &place,
                     const standing &at)
{
  if (place.s == nullptr || is_same_function(place, at)) {
    return place.s == nullptr ||
           (holds_here(place, at) &&
            (place.wrong != REPORTS || is_calm(c, at.command, place.from)));
  }
  const bool whole =
      !place.function.empty() && place.branch < 0 && place.to == TO_THE_END;
  return whole && (place.wrong == LEAVES || is_calm(c, at.command, 0));
}

// A function without a call that is written out counts as judged: what it is
// given is not known, and a false alarm would be worse.  A call from within
// itself says nothing new.
static bool is_judged_by(const context &c, const bash_command &command,
                         const std::vector<judged_place> &places, int depth)
{
  const standing at = standing_of(c, command);
  if (std::any_of(places.begin(), places.end(), [&](const judged_place &place) {
        return holds_at(c, place, at);
      })) {
    return true;
  }
  const auto *calls = calls_of(c, command);
  if (calls == nullptr) { // called by a name that only the run knows, or never
    return !command.function.empty();
  }
  return depth < CALLERS_DEEP &&
         std::all_of(calls->begin(), calls->end(),
                     [&](const bash_command *call) {
                       return call->function == command.function ||
                              is_judged_by(c, *call, places, depth + 1);
                     });
}

bool is_judged(const context &c, const bash_command &command,
               const std::string &name)
{
  const auto places = c.judged.find(name);
  return places != c.judged.end() &&
         is_judged_by(c, command, places->second, 0);
}
