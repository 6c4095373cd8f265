#include "platform/plist/KeyedArchiver.h"

#include <array>
#include <string>
#include <unordered_map>

#include "platform/log/Log.h"
#include "platform/plist/BinaryPropertyListWriter.h"
#include "platform/plist/KeyedArchiveFormat.h"

namespace vexo::plist {
namespace {

using Reference = BinaryPropertyListWriter::Reference;
using namespace archive;

// The classes this encoder writes, each with its descriptor's "$classes" chain.
enum class ArchivedClass { Dictionary, Array, Date, Count };

struct ClassChain {
    std::string_view name;
    std::string_view superclass;
};

constexpr std::array<ClassChain, static_cast<std::size_t>(ArchivedClass::Count)> kClassChains = {{
    {kDictionaryClass, kObjectClass},
    {kArrayClass, kObjectClass},
    {kDateClass, kObjectClass},
}};

class Encoder {
public:
    Encoder() = default;
    explicit Encoder(Data&& buffer)
        : m_writer(std::move(buffer)) {}

    std::optional<Data> encode(const Value& root) {
        m_objects.push_back(m_writer.addString(kNullObject));
        m_structuralKeys.classKey = m_writer.addString(kClassKey);
        m_structuralKeys.keys = m_writer.addString(kKeysField);
        m_structuralKeys.objects = m_writer.addString(kObjectsField);
        m_structuralKeys.time = m_writer.addString(kTimeField);

        const auto rootUid = archive(root, 0);
        if (!rootUid)
            return std::nullopt;

        const Reference topKeys[] = {m_writer.addString(kRootKey)};
        const Reference topValues[] = {uidReference(*rootUid)};
        const Reference keys[] = {m_writer.addString(kVersionKey), m_writer.addString(kArchiverKey),
                                  m_writer.addString(kTopKey), m_writer.addString(kObjectsKey)};
        const Reference values[] = {m_writer.addInteger(Integer::fromSigned(kVersion)),
                                    m_writer.addString(kArchiverName), m_writer.addDictionary(topKeys, topValues),
                                    m_writer.addArray(m_objects)};
        return m_writer.finish(m_writer.addDictionary(keys, values));
    }

private:
    // Archives `value` and returns its UID; nothing when it nests too deep.
    std::optional<std::uint64_t> archive(const Value& value, std::size_t depth) {
        if (depth > kMaxNestingDepth) {
            log::debug("plist", "not archiving a value nested deeper than " + std::to_string(kMaxNestingDepth));
            return std::nullopt;
        }
        switch (value.type()) {
        case Value::Type::Null:
            return 0;
        case Value::Type::String:
            return archiveString(*value.asString());
        case Value::Type::Integer:
            return append(m_writer.addInteger(*value.asInteger()));
        case Value::Type::Real:
            return append(m_writer.addReal(*value.asReal()));
        case Value::Type::Boolean:
            return append(m_writer.addBoolean(*value.asBoolean()));
        case Value::Type::Data:
            return append(m_writer.addData(*value.asData()));
        case Value::Type::Date:
            return archiveDate(*value.asDate());
        case Value::Type::Array:
            return archiveArray(*value.asArray(), depth);
        case Value::Type::Dictionary:
            return archiveDictionary(*value.asDictionary(), depth);
        }
        return 0;
    }

    std::uint64_t append(Reference object) {
        m_objects.push_back(object);
        return m_objects.size() - 1;
    }

    // Containers take their UID before their contents, as the platform's archiver numbers
    // them, so the root is always UID 1.
    std::uint64_t reserve() { return append(0); }

    std::uint64_t archiveString(const std::string& string) {
        const auto [found, inserted] = m_stringUids.try_emplace(string, 0);
        if (inserted)
            found->second = append(m_writer.addString(string));
        return found->second;
    }

    std::uint64_t archiveDate(Date date) {
        const std::uint64_t uid = reserve();
        const Reference keys[] = {m_structuralKeys.time, m_structuralKeys.classKey};
        const Reference values[] = {m_writer.addReal(Real{date.secondsSinceReferenceDate, false}),
                                    uidReference(classUid(ArchivedClass::Date))};
        m_objects[uid] = m_writer.addDictionary(keys, values);
        return uid;
    }

    std::optional<std::uint64_t> archiveArray(const Array& array, std::size_t depth) {
        const std::uint64_t uid = reserve();
        std::vector<Reference> elements;
        elements.reserve(array.size());
        for (const Value& element : array) {
            const auto elementUid = archive(element, depth + 1);
            if (!elementUid)
                return std::nullopt;
            elements.push_back(uidReference(*elementUid));
        }
        const Reference keys[] = {m_structuralKeys.objects, m_structuralKeys.classKey};
        const Reference values[] = {m_writer.addArray(elements), uidReference(classUid(ArchivedClass::Array))};
        m_objects[uid] = m_writer.addDictionary(keys, values);
        return uid;
    }

    std::optional<std::uint64_t> archiveDictionary(const Dictionary& dictionary, std::size_t depth) {
        const std::uint64_t uid = reserve();
        std::vector<Reference> keyUids;
        std::vector<Reference> valueUids;
        keyUids.reserve(dictionary.size());
        valueUids.reserve(dictionary.size());
        for (const auto& [key, value] : dictionary) {
            keyUids.push_back(uidReference(archiveString(key)));
            const auto valueUid = archive(value, depth + 1);
            if (!valueUid)
                return std::nullopt;
            valueUids.push_back(uidReference(*valueUid));
        }
        const Reference keys[] = {m_structuralKeys.keys, m_structuralKeys.objects, m_structuralKeys.classKey};
        const Reference values[] = {m_writer.addArray(keyUids), m_writer.addArray(valueUids),
                                    uidReference(classUid(ArchivedClass::Dictionary))};
        m_objects[uid] = m_writer.addDictionary(keys, values);
        return uid;
    }

    // The UID of the class descriptor, written on first use.
    std::uint64_t classUid(ArchivedClass archivedClass) {
        auto& uid = m_classUids[static_cast<std::size_t>(archivedClass)];
        if (uid == 0) {
            const ClassChain& chain = kClassChains[static_cast<std::size_t>(archivedClass)];
            const Reference classes[] = {m_writer.addString(chain.name), m_writer.addString(chain.superclass)};
            const Reference keys[] = {m_writer.addString(kClassNameKey), m_writer.addString(kClassesKey)};
            const Reference values[] = {classes[0], m_writer.addArray(classes)};
            uid = append(m_writer.addDictionary(keys, values));
        }
        return uid;
    }

    // A UID object for `uid`, written once however often it is referred to.
    Reference uidReference(std::uint64_t uid) {
        if (uid >= m_uidReferences.size())
            m_uidReferences.resize(uid + 1, kNoReference);
        if (m_uidReferences[uid] == kNoReference)
            m_uidReferences[uid] = m_writer.addUid(uid);
        return m_uidReferences[uid];
    }

    static constexpr Reference kNoReference = ~Reference{0};

    BinaryPropertyListWriter m_writer;
    std::vector<Reference> m_objects;
    std::vector<Reference> m_uidReferences;
    std::unordered_map<std::string_view, std::uint64_t> m_stringUids;
    std::array<std::uint64_t, static_cast<std::size_t>(ArchivedClass::Count)> m_classUids{};
    struct {
        Reference classKey = 0;
        Reference keys = 0;
        Reference objects = 0;
        Reference time = 0;
    } m_structuralKeys;
};

} // namespace

std::optional<Data> KeyedArchiver::archivedData(const Value& root) {
    return Encoder().encode(root);
}

bool KeyedArchiver::archive(const Value& root, Data& archive) {
    auto encoded = Encoder(std::move(archive)).encode(root);
    if (!encoded) {
        archive.clear();
        return false;
    }
    archive = std::move(*encoded);
    return true;
}

} // namespace vexo::plist
