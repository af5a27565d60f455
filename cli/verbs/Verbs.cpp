#include "cli/verbs/Verbs.h"

namespace tarncli {

namespace verbs {

// Each is in the file of its name. A table rather than objects that register themselves: the linker leaves out what
// nothing refers to, and the order is that of the help.
Verb login();
Verb logout();
Verb whoami();
Verb ping();
Verb doctor();
Verb profile();
Verb local();
Verb ls();
Verb tree();
Verb find();
Verb du();
Verb stat();
Verb cat();
Verb edit();
Verb put();
Verb get();
Verb check();
Verb sync();
Verb apply();
Verb cp();
Verb mkdir();
Verb mv();
Verb rm();
Verb undo();
Verb grant();
Verb revoke();
Verb grants();
Verb explain();
Verb shared();
Verb link();
Verb versions();
Verb restore();
Verb replay();
Verb help();
Verb version();
Verb completion();
Verb man();
Verb complete();

} // namespace verbs

std::vector<Verb> allVerbs()
{
    using namespace verbs;
    return {login(),  logout(), whoami(),  ping(),       doctor(), profile(), local(),    ls(),
            tree(),   find(),   du(),      stat(),       cat(),    edit(),    put(),      get(),
            check(),  sync(),   apply(),   cp(),         mkdir(),  mv(),      rm(),       undo(),
            grant(),  revoke(), grants(),  explain(),    shared(), link(),    versions(), restore(),
            replay(), help(),   version(), completion(), man(),    complete()};
}

} // namespace tarncli
