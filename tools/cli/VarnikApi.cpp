#include "VarnikApi.h"

#include <type_traits>

// The pointer types are written out above for readability; make sure they never drift from
// the declarations in the public header.
static_assert(std::is_same<PosSelectFn, decltype(&::PosSelect)>::value, "PosSelect");
static_assert(std::is_same<PosCheckPortFn, decltype(&::PosCheckPort)>::value, "PosCheckPort");
static_assert(std::is_same<PosCancelFn, decltype(&::PosCancel)>::value, "PosCancel");
static_assert(std::is_same<GetVersionFn, decltype(&::getVersion)>::value, "getVersion");
static_assert(std::is_same<PosExecFn, decltype(&::PosExec)>::value, "PosExec");
static_assert(std::is_same<PinLoadMKFn, decltype(&::PinLoadMK)>::value, "PinLoadMK");
static_assert(std::is_same<PinReadKeyFn, decltype(&::PinReadKey)>::value, "PinReadKey");
static_assert(std::is_same<PinReadKeyClearFn, decltype(&::PinReadKeyClear)>::value,
              "PinReadKeyClear");
static_assert(std::is_same<MsreReadFn, decltype(&::MsreRead)>::value, "MsreRead");
static_assert(std::is_same<EMVReadFn, decltype(&::EMVRead)>::value, "EMVRead");
static_assert(std::is_same<ThaiIDReadFn, decltype(&::ThaiIDRead)>::value, "ThaiIDRead");
static_assert(std::is_same<ThaiLenFn, decltype(&::ThaiLen)>::value, "ThaiLen");
static_assert(std::is_same<ReaderSelectFn, decltype(&::ReaderSelect)>::value, "ReaderSelect");

namespace {

template <typename Pointer>
void Bind(Pointer& slot, const char* name, const ExportLookup& lookup)
{
    // ExportAddress is void(*)(void), the one function type that casts to any other without
    // a warning; the real type is the one the header declares.
    slot = reinterpret_cast<Pointer>(lookup(name));
}

} // namespace

void BindExports(VarnikApi& api, const ExportLookup& lookup)
{
    Bind(api.PosSelect, "PosSelect", lookup);
    Bind(api.PosCheckPort, "PosCheckPort", lookup);
    Bind(api.PosCancel, "PosCancel", lookup);
    Bind(api.getVersion, "getVersion", lookup);
    Bind(api.PosExec, "PosExec", lookup);
    Bind(api.PinLoadMK, "PinLoadMK", lookup);
    Bind(api.PinReadKey, "PinReadKey", lookup);
    Bind(api.PinReadKeyClear, "PinReadKeyClear", lookup);
    Bind(api.MsreRead, "MsreRead", lookup);
    Bind(api.EMVRead, "EMVRead", lookup);
    Bind(api.ThaiIDRead, "ThaiIDRead", lookup);
    Bind(api.ThaiLen, "ThaiLen", lookup);
    Bind(api.ReaderSelect, "ReaderSelect", lookup);
}
