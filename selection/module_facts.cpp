#include "selection/module_facts.h"

#include "clr/com_ptr.h"
#include "selection/full_name.h"
#include "selection/image_metadata.h"
#include "selection/method_info.h"
#include "selection/method_patterns.h"
#include "selection/target_methods.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>
#include <string_view>

namespace corvane {
namespace {

constexpr const wchar_t* kAttributes[] = {kTraceAttribute, kTransparentAttribute};

// A row of the metadata's table of types that are defined here, or of those that are referred to.
using TypeRow = std::atomic<mdToken>;

// Whether a pattern may meet a method of a type.
enum class Verdict : std::uint8_t { kUnknown, kRuledOut, kPossible };

class ModuleFacts {
public:
    explicit ModuleFacts(ModuleID module) noexcept : module_(module) {}

    // What is asked about the module as a whole when one of its methods is described. Only a method
    // that is described needs the runtime's metadata, and needs it for writing.
    void learn(ICorProfilerInfo* info, FunctionID function);

    bool needs_description(mdMethodDef method);

    ModuleID module() const noexcept { return module_; }
    ModuleFacts* next = nullptr; // of the table's list

private:
    bool can_be_learnt(ICorProfilerInfo* info, FunctionID function);
    template <class Ask>
    bool read_names(TypeRow& next_row, const Ask& ask) noexcept;
    bool read_new_names() noexcept;
    bool may_meet_pattern(mdTypeDef type);

    const ModuleID module_;
    ComPtr<IMetaDataImport> metadata_;
    TypeRow next_definition_ = mdtTypeDef | 1; // whose name has not been read
    TypeRow next_reference_ = mdtTypeRef | 1;
    std::atomic<unsigned> named_ = 0;           // a bit for each of kAttributes that has a type
    std::atomic<bool> describes_always_ = true; // nothing can be ruled out
    // One for each type that there is when the module is learnt; none without patterns.
    std::unique_ptr<std::atomic<Verdict>[]> verdicts_;
    std::size_t types_ = 0;
};

static_assert(sizeof(ModuleFacts) <= 64); // and 16 of the heap's: 12 KiB for 150

void ModuleFacts::learn(ICorProfilerInfo* info, FunctionID function) {
    describes_always_ = !can_be_learnt(info, function);
    if (!describes_always_ && !method_patterns.empty()) {
        types_ = RidFromToken(next_definition_) - 1;
        verdicts_ = std::make_unique<std::atomic<Verdict>[]>(types_);
    }
}

bool ModuleFacts::can_be_learnt(ICorProfilerInfo* info, FunctionID function) {
    ComPtr<ICorProfilerInfo3> info3;
    LPCBYTE image = nullptr;
    ULONG length = 0;
    AssemblyID assembly = 0;
    DWORD flags = 0;
    if (FAILED(info->QueryInterface(__uuidof(ICorProfilerInfo3), info3.put_void())) ||
        FAILED(info3->GetModuleInfo2(module_, &image, 0, &length, nullptr, &assembly, &flags)) ||
        (flags & COR_PRF_MODULE_DYNAMIC) != 0) {
        return false;
    }
    method_info first;
    first.module_id = module_;
    if (FAILED(first.get_module_info(info))) {
        return false;
    }
    metadata_ = open_image_metadata_of_module(reinterpret_cast<const std::byte*>(image), flags);
    mdToken token = mdTokenNil;
    if (!metadata_ && (FAILED(info->GetTokenAndMetaDataFromFunction(
                           function, __uuidof(IMetaDataImport), metadata_.put_unknown(), &token)) ||
                       !metadata_)) {
        return false;
    }
    return SUCCEEDED(find_transparent_assembly(*metadata_.get(), first.is_transparent)) &&
           !first.is_transparent && read_new_names();
}

// Reads the names of all rows from `next_row` on. Two threads may read the same ones.
template <class Ask>
bool ModuleFacts::read_names(TypeRow& next_row, const Ask& ask) noexcept {
    mdToken row = next_row;
    for (; metadata_->IsValidToken(row); ++row) {
        wchar_t name[64]; // a longer name is cut, and none of those that are looked for
        ULONG length = 0;
        if (FAILED(ask(row, name, static_cast<ULONG>(std::size(name)), &length))) {
            return false;
        }
        for (unsigned i = 0; i < std::size(kAttributes); ++i) {
            const std::wstring_view attribute = kAttributes[i];
            if (length == attribute.size() + 1 && attribute == name) {
                named_ |= 1U << i;
            }
        }
    }
    if (row != next_row) {
        next_row = row;
    }
    return true;
}

bool ModuleFacts::read_new_names() noexcept {
    return read_names(next_definition_,
                      [this](mdToken type, wchar_t* name, ULONG capacity, ULONG* length) {
                          return metadata_->GetTypeDefProps(type, name, capacity, length, nullptr,
                                                            nullptr);
                      }) &&
           read_names(next_reference_,
                      [this](mdToken type, wchar_t* name, ULONG capacity, ULONG* length) {
                          mdToken scope = mdTokenNil;
                          return metadata_->GetTypeRefProps(type, &scope, name, capacity, length);
                      });
}

bool ModuleFacts::may_meet_pattern(mdTypeDef type) {
    const std::size_t row = RidFromToken(type) - 1;
    if (row >= types_) {
        return true;
    }
    std::atomic<Verdict>& verdict = verdicts_[row];
    if (verdict == Verdict::kUnknown) {
        const std::wstring name = full_type_name(*metadata_.get(), type);
        verdict = !name.empty() && method_patterns.may_match_type(name) ? Verdict::kPossible
                                                                        : Verdict::kRuledOut;
    }
    return verdict == Verdict::kPossible;
}

bool ModuleFacts::needs_description(mdMethodDef method) {
    if (describes_always_) {
        return true;
    }
    if (!read_new_names()) {
        describes_always_ = true;
        return true;
    }
    wchar_t name[256]; // longer ones are few
    mdTypeDef type = mdTypeDefNil;
    ULONG length = 0;
    DWORD attributes = 0;
    if (FAILED(metadata_->GetMethodProps(method, &type, name, static_cast<ULONG>(std::size(name)),
                                         &length, &attributes, nullptr, nullptr, nullptr,
                                         nullptr)) ||
        length == 0 || length > std::size(name) || can_be_chosen_by_name({name, length - 1}) ||
        (!method_patterns.empty() && may_meet_pattern(type))) {
        return true;
    }
    for (unsigned i = 0; i < std::size(kAttributes); ++i) {
        if ((named_ & 1U << i) != 0 && has_attribute(*metadata_.get(), method, kAttributes[i])) {
            return true;
        }
    }
    return false;
}

// The system's own lock, which waiting costs next to nothing.
class SlimLock {
public:
    void lock() noexcept { AcquireSRWLockExclusive(&lock_); }
    void unlock() noexcept { ReleaseSRWLockExclusive(&lock_); }
    void lock_shared() noexcept { AcquireSRWLockShared(&lock_); }
    void unlock_shared() noexcept { ReleaseSRWLockShared(&lock_); }

private:
    SRWLOCK lock_ = SRWLOCK_INIT;
};

// Lists by the hash of the module. Who shares the lock may add in front, who has it alone removes.
struct KnownModules {
    SlimLock lock;
    std::array<std::atomic<ModuleFacts*>, 256> lists{};

    std::atomic<ModuleFacts*>& list_of(ModuleID module) noexcept {
        return lists[(module * 0x9E3779B97F4A7C15U) >> 56];
    }
};

// Outlives every thread that compiles.
KnownModules& known_modules() {
    alignas(KnownModules) static std::byte room[sizeof(KnownModules)];
    static auto& all = *new (room) KnownModules();
    return all;
}

// The lock is shared.
ModuleFacts& facts_of(ModuleID module, ICorProfilerInfo* info, FunctionID function) {
    std::atomic<ModuleFacts*>& list = known_modules().list_of(module);
    const auto find = [module](ModuleFacts* facts) {
        while (facts != nullptr && facts->module() != module) {
            facts = facts->next;
        }
        return facts;
    };
    ModuleFacts* first = list;
    if (ModuleFacts* const known = find(first)) {
        return *known;
    }
    auto learnt = std::make_unique<ModuleFacts>(module);
    learnt->learn(info, function);
    do {
        if (ModuleFacts* const known = find(first)) {
            return *known; // learnt by another thread meanwhile
        }
        learnt->next = first;
    } while (!list.compare_exchange_weak(first, learnt.get()));
    return *learnt.release();
}

} // namespace

bool needs_description(ICorProfilerInfo* info, FunctionID function) noexcept {
    ClassID type = 0;
    ModuleID module = 0;
    mdToken method = mdTokenNil;
    ThreadID thread = 0;
    if (FAILED(info->GetFunctionInfo(function, &type, &module, &method)) ||
        FAILED(info->GetCurrentThreadID(&thread))) {
        return true;
    }
    try {
        const std::shared_lock use(known_modules().lock);
        return facts_of(module, info, function).needs_description(method);
    } catch (const std::bad_alloc&) {
        return true;
    }
}

void forget_module_facts(ModuleID module) noexcept {
    KnownModules& all = known_modules();
    std::unique_ptr<ModuleFacts> forgotten;
    const std::lock_guard alone(all.lock);
    std::atomic<ModuleFacts*>& list = all.list_of(module);
    ModuleFacts* previous = nullptr;
    for (ModuleFacts* facts = list; facts != nullptr; previous = facts, facts = facts->next) {
        if (facts->module() == module) {
            if (previous != nullptr) {
                previous->next = facts->next;
            } else {
                list = facts->next;
            }
            forgotten.reset(facts);
            return;
        }
    }
}

} // namespace corvane
