#include "cli/verbs/Verbs.h"

namespace tarncli {

namespace verbs {

// Each is in the file of its name. A table rather than objects that register themselves: the linker leaves out what
// nothing refers to, and the order is that of the help.
Verb login();
Verb logout();
Verb whoami();
Verb ping();
Verb local();
Verb ls();
Verb tree();
Verb stat();
Verb cat();
Verb put();
Verb get();
Verb mkdir();
Verb mv();
Verb rm();
Verb grant();
Verb revoke();
Verb grants();
Verb shared();
Verb link();
Verb versions();
Verb restore();

} // namespace verbs

std::vector<Verb> allVerbs()
{
    using namespace verbs;
    return {login(), logout(), whoami(), ping(),   local(), ls(),       tree(),
            stat(),  cat(),    put(),    get(),    mkdir(), mv(),       rm(),
            grant(), revoke(), grants(), shared(), link(),  versions(), restore()};
}

} // namespace tarncli
