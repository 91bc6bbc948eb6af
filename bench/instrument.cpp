// How long it takes to instrument a method, by the number of type references that its module has,
// and what takes the time: references, emitters, writing and debugger output. The module is the
// runtime's own metadata engine's; between it and the code that is measured stands a fake runtime,
// which sees where one part ends and the next begins. The first method of a module, for which the
// references are made, and the later ones, which find them, are told apart. Each size is measured
// with nobody who reads the log, and with a debugger that the process takes itself to have.
//
//   instrument_bench [MODULES]      (the runtime is found through CORVANE_DOTNET_ROOTS)
#include "base/log_output.h"
#include "base/runtime_state.h"
#include "bench/measuring.h"
#include "rewrite/body/body_reader.h"
#include "rewrite/body/body_writer.h"
#include "rewrite/method_instrumenter.h"
#include "rewrite/rewrite_settings.h"
#include "tests/support/debug_output.h"
#include "tests/support/real_methods.h"
#include "tests/support/scratch_module.h"

#include <intrin.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// --- Debugger output

namespace {

std::uint64_t output_ticks = 0;
std::size_t output_lines = 0;

template <class Char>
using OutputFunction = void(WINAPI*)(const Char*);

template <class Char>
OutputFunction<Char> system_function(const char* name) {
    return reinterpret_cast<OutputFunction<Char>>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name)));
}

template <class Char>
void write_timed(OutputFunction<Char> function, const Char* text) {
    const std::uint64_t before = __rdtsc();
    function(text);
    output_ticks += __rdtsc() - before;
    ++output_lines;
}

void WINAPI write_wide(const wchar_t* text) {
    static const auto function = system_function<wchar_t>("OutputDebugStringW");
    write_timed(function, text);
}

void WINAPI write_narrow(const char* text) {
    static const auto function = system_function<char>("OutputDebugStringA");
    write_timed(function, text);
}

} // namespace

// What calls of the two functions go through. The linker takes these in place of those that it
// would import, for the code that is measured as well.
extern "C" {
extern const OutputFunction<wchar_t> __imp_OutputDebugStringW;
extern const OutputFunction<char> __imp_OutputDebugStringA;
const OutputFunction<wchar_t> __imp_OutputDebugStringW = write_wide;
const OutputFunction<char> __imp_OutputDebugStringA = write_narrow;
}

namespace {

using namespace corvane;
using testing::Bytes;

// --- The module

// In ticks of the processor's clock.
struct Moment {
    std::uint64_t time = 0;
    std::uint64_t output = 0; // of it, within debugger output so far

    static Moment now() { return {__rdtsc(), output_ticks}; }
};

// The time between two moments, without the output.
std::uint64_t own_time(const Moment& from, const Moment& to) {
    return to.time - from.time - (to.output - from.output);
}

class TimedModule final : public testing::ScratchModule {
public:
    using ScratchModule::ScratchModule;

    Moment rewriting;  // the metadata is opened for rewriting: the references are done
    Moment installing; // the new body is finished

    HRESULT STDMETHODCALLTYPE GetModuleMetaData(ModuleID module, DWORD flags, REFIID iid,
                                                IUnknown** metadata) override {
        if (rewriting.time == 0 && flags == ofWrite && iid == __uuidof(IMetaDataImport)) {
            rewriting = Moment::now();
        }
        return ScratchModule::GetModuleMetaData(module, flags, iid, metadata);
    }
    HRESULT STDMETHODCALLTYPE GetILFunctionBodyAllocator(ModuleID module,
                                                         IMethodMalloc** allocator) override {
        installing = Moment::now();
        return ScratchModule::GetILFunctionBodyAllocator(module, allocator);
    }
};

constexpr std::array kTypeRefs = {40U, 100U, 400U};
constexpr unsigned kQuotedTypeRefs = 400;
// Of a module. Where somebody watches, each takes tens of milliseconds.
constexpr unsigned kMethods = 500;
constexpr unsigned kWatchedMethods = 10;

// int32 Place(int32, string), an instance method
constexpr std::uint8_t kSignature[] = {0x20, 0x02, 0x08, 0x08, 0x0E};
// A tiny header; ldarg.1; ldarg.2; brtrue.s to the end; ldc.i4.1; add; ret
constexpr std::uint8_t kBody[] = {7 << 2 | 2, 0x03, 0x04, 0x2D, 0x02, 0x17, 0x58, 0x2A};

std::vector<mdMethodDef> fill(TimedModule& module, unsigned type_refs, unsigned count) {
    const mdAssemblyRef runtime = module.assembly_ref(L"System.Runtime");
    const mdTypeDef type =
        module.type_def(L"Shop.Orders", module.type_ref(runtime, L"System.Object"));
    module.type_ref(runtime, L"System.Int32");
    module.type_ref(runtime, L"System.String");
    for (unsigned i = 3; i < type_refs; ++i) {
        module.type_ref(runtime, L"System.Collections.Generic.Type" + std::to_wstring(i));
    }
    std::vector<mdMethodDef> methods;
    for (unsigned i = 0; i < count; ++i) {
        methods.push_back(module.method_def(type, L"Place" + std::to_wstring(i),
                                            {std::begin(kSignature), std::end(kSignature)}));
        module.bodies[methods.back()] = {std::begin(kBody), std::end(kBody)};
    }
    return methods;
}

// --- Measuring

struct Parts {
    std::uint64_t total = 0;
    std::uint64_t references = 0;
    std::uint64_t emitters = 0;
    std::uint64_t writing = 0;
    std::uint64_t output = 0;
    std::size_t lines = 0; // of the output
};

// The fake runtime does not see where emitting ends and laying out begins: that is timed apart, on
// the body that came of it.
std::uint64_t time_write_body(const Bytes& bytes) {
    MethodBody body;
    Bytes written;
    if (read_body(bytes, body) != BodyResult::kOk) {
        throw std::runtime_error("the new body cannot be read");
    }
    const std::uint64_t before = __rdtsc();
    const BodyResult result = write_body(body, written);
    const std::uint64_t after = __rdtsc();
    if (result != BodyResult::kOk || written.size() != bytes.size()) {
        throw std::runtime_error("the new body cannot be written again");
    }
    return after - before;
}

Parts instrument(TimedModule& module, mdMethodDef token) {
    method_info method;
    const auto set = [](RuntimeName& name, std::wstring_view text) {
        std::copy(text.begin(), text.end(), name.resize(static_cast<ULONG>(text.size() + 1)));
    };
    set(method.type_name, L"Shop.Orders");
    set(method.method_name, L"Place" + std::to_wstring(token));
    method.module_id = TimedModule::kModule;
    method.method_token = token;
    method.signature = kSignature;
    method.signature_size = sizeof kSignature;
    RewriteContext context{&module, method,
                           DebugLog(make_prefix(L"Shop", L"Shop.Orders", L"Place"))};
    module.rewriting = {};
    const int installations = module.installations;
    const std::size_t lines = output_lines;

    const Moment start = Moment::now();
    const HRESULT hr = RewriteMethod(context, &module, method, InstrumentationMode::kAttribute);
    const Moment end = Moment::now();
    if (FAILED(hr) || module.installations != installations + 1) {
        throw std::runtime_error("a method was not instrumented");
    }
    const std::uint64_t laying_out = time_write_body(module.bodies[token]);
    const std::uint64_t rewriting = own_time(module.rewriting, module.installing);
    return {end.time - start.time,
            own_time(start, module.rewriting),
            rewriting - std::min(rewriting, laying_out),
            laying_out + own_time(module.installing, end),
            end.output - start.output,
            output_lines - lines};
}

std::uint64_t median(const std::vector<Parts>& samples, std::uint64_t Parts::*part) {
    std::vector<std::uint64_t> values;
    for (const Parts& sample : samples) {
        values.push_back(sample.*part);
    }
    return measuring::median(std::move(values));
}

struct Figures {
    bool watched;
    unsigned type_refs;
    std::vector<Parts> first;
    std::vector<Parts> later;
    std::vector<Parts> last; // of them, the last tenth of each module
};

void measure_module(IMetaDataDispenserEx& engine, Figures& figures) {
    const testing::DebuggerPresence debugger(figures.watched);
    TimedModule module(engine);
    module.writes_down = false;
    const std::vector<mdMethodDef> methods =
        fill(module, figures.type_refs, figures.watched ? kWatchedMethods : kMethods);
    for (const mdMethodDef method : methods) {
        const Parts parts = instrument(module, method);
        (method == methods.front() ? figures.first : figures.later).push_back(parts);
        if (method > methods[methods.size() - methods.size() / 10]) {
            figures.last.push_back(parts);
        }
        if (figures.watched ? parts.lines < figures.type_refs : parts.lines != 0) {
            throw std::runtime_error("the debugger output is not as it is watched");
        }
    }
}

int bench(int modules) {
    const auto runtime = testing::newest_runtime_folder();
    if (!runtime) {
        throw std::runtime_error("CORVANE_DOTNET_ROOTS names no folder with runtime 10");
    }
    const auto engine = testing::metadata_dispenser(*runtime);
    if (!engine) {
        throw std::runtime_error("no metadata engine in " + runtime->string());
    }
    strict_il = true;
    managedLibraryLoaded = true;
    { const StartUpLines start_up_is_over; }
    if (const testing::DebuggerPresence debugger(false); log_is_read()) {
        throw std::runtime_error("a viewer of debugger output runs, which is to be closed first");
    }

    // Sizes take turns, so that a machine that is busy for a while is busy for all of them.
    std::vector<Figures> all;
    for (const bool watched : {false, true}) {
        for (const unsigned type_refs : kTypeRefs) {
            all.push_back({watched, type_refs, {}, {}, {}});
        }
    }
    for (int i = 0; i < modules; ++i) {
        for (Figures& figures : all) {
            measure_module(*engine.get(), figures);
        }
    }

    const double tick = measuring::nanoseconds_a_tick() / 1000; // in microseconds
    const auto us = [&](const std::vector<Parts>& samples, std::uint64_t Parts::*part) {
        return static_cast<double>(median(samples, part)) * tick;
    };
    std::printf("Median us to instrument a method of 2 parameters, %d modules of %u methods, "
                "%u where somebody watches\n\n",
                modules, kMethods, kWatchedMethods);
    std::printf("%-8s %-10s %-8s %10s %12s %10s %10s %10s %8s\n", "watched", "type refs", "method",
                "total", "references", "emitters", "writing", "output", "lines");
    for (const Figures& figures : all) {
        for (const auto* const samples : {&figures.first, &figures.later}) {
            std::printf("%-8s %-10u %-8s %10.1f %12.1f %10.1f %10.1f %10.1f %8zu\n",
                        figures.watched ? "yes" : "no", figures.type_refs,
                        samples == &figures.first ? "first" : "later", us(*samples, &Parts::total),
                        us(*samples, &Parts::references), us(*samples, &Parts::emitters),
                        us(*samples, &Parts::writing), us(*samples, &Parts::output),
                        samples->back().lines);
        }
    }
    const auto quoted = [&](bool watched) -> const Figures& {
        return *std::ranges::find_if(all, [&](const Figures& figures) {
            return figures.watched == watched && figures.type_refs == kQuotedTypeRefs;
        });
    };
    const std::vector<Parts>& later = quoted(false).later;
    const std::vector<Parts>& watched = quoted(true).later;
    std::printf("\ninstrument: total_us=%.0f references=%.1f emitters=%.1f writing=%.1f "
                "first_us=%.0f last_us=%.0f watched_us=%.0f output=%.0f\n",
                us(later, &Parts::total), us(later, &Parts::references),
                us(later, &Parts::emitters), us(later, &Parts::writing),
                us(quoted(false).first, &Parts::total), us(quoted(false).last, &Parts::total),
                us(watched, &Parts::total), us(watched, &Parts::output));
    return EXIT_SUCCESS;
}

} // namespace

int main(int count, char** arguments) {
    try {
        return bench(count > 1 ? std::stoi(arguments[1]) : 31);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "instrument_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
