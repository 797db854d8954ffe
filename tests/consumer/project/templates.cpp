// Every template of the installed headers, so that what they call is looked for in the library.
#include "platform/owners.h"

namespace varnel {

template class ComPtr<IUnknown>;
template HRESULT QueryFor(IUnknown*, const IID&, ComPtr<IVssAsync>&);
template class Owned<owned::File>;
template class Owned<owned::Search>;
template class Owned<owned::Process>;
template class Owned<owned::Key>;
template class Owned<owned::LoadedModule>;
template class Owned<owned::Text>;
template class Owned<owned::Block>;
template class Owned<owned::BasicString>;
template class Owned<owned::Properties>;
template class Owned<owned::Object>;

}  // namespace varnel
