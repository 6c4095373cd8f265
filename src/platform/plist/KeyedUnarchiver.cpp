#include "platform/plist/KeyedUnarchiver.h"

#include <optional>
#include <vector>

#include "platform/log/Log.h"
#include "platform/plist/BinaryPropertyList.h"
#include "platform/plist/KeyedArchiveFormat.h"
#include "platform/plist/XmlPropertyList.h"

namespace vexo::plist {
namespace {

using namespace archive;
using Kind = BinaryPropertyList::Kind;
using Object = BinaryPropertyList::Object;

// Every decoded value costs one unit. A tree-shaped archive needs at least one reference of
// its own per value, so a budget proportional to the input only stops archives that share
// objects to expand exponentially.
constexpr std::size_t kValueBudgetPerByte = 16;
constexpr std::size_t kMinimumValueBudget = 4096;
constexpr std::size_t kMaxInputBytes = std::size_t{256} << 20;

// Abandons a decode from any depth of the recursion; caught in unarchive(), never escapes it.
struct DecodeError {
    std::string reason;
    ErrorKind kind;
};

enum class ClassKind { Dictionary, Array, String, Data, Date, Other };

struct ArchivedClass {
    std::uint64_t uid;
    ClassKind kind;
    std::string name;
};

// Where an instance keeps the fields of the common classes, when it has them.
struct Fields {
    std::optional<std::uint64_t> classEntry;
    std::optional<std::uint64_t> keys;
    std::optional<std::uint64_t> objects;
};

class Decoder {
public:
    Decoder(const BinaryPropertyList& list, std::size_t inputSize)
        : m_list(list),
          m_budget(kMinimumValueBudget + kValueBudgetPerByte * inputSize) {}

    Value decodeArchive() {
        const Object top = objectAt(m_list.topObject(), "top object");
        if (top.kind != Kind::Dictionary)
            fail("the top object is not a dictionary");
        const auto archiver = field(top, kArchiverKey);
        if (!archiver || !BinaryPropertyList::textEquals(objectAt(*archiver, "$archiver"), kArchiverName))
            fail("not written by NSKeyedArchiver", ErrorKind::Unsupported);

        const auto objects = field(top, kObjectsKey);
        if (!objects)
            fail("no $objects");
        m_objects = objectAt(*objects, "$objects");
        if (m_objects.kind != Kind::Array)
            fail("$objects is not an array");
        m_onPath.assign(m_objects.count, false);

        const auto topEntry = field(top, kTopKey);
        if (!topEntry)
            fail("no $top");
        const Object topDictionary = objectAt(*topEntry, "$top");
        if (topDictionary.kind != Kind::Dictionary)
            fail("$top is not a dictionary");
        const auto root = field(topDictionary, kRootKey);
        if (!root)
            fail("$top has no root");
        return decodeUid(uidAt(*root, "root"), 0);
    }

private:
    [[noreturn]] static void fail(std::string reason, ErrorKind kind = ErrorKind::InvalidData) {
        throw DecodeError{std::move(reason), kind};
    }

    Object objectAt(std::uint64_t index, std::string_view what) const {
        Object object;
        if (!m_list.read(index, object))
            fail("malformed " + std::string(what) + " (object " + std::to_string(index) + ")");
        return object;
    }

    std::uint64_t uidAt(std::uint64_t index, std::string_view what) const {
        std::uint64_t uid = 0;
        if (!m_list.uid(index, uid)) {
            objectAt(index, what); // says so when the object is malformed rather than no UID
            fail(std::string(what) + " is not a UID");
        }
        return uid;
    }

    // The object index stored under the ASCII key `name` of a dictionary, if any.
    std::optional<std::uint64_t> field(const Object& dictionary, std::string_view name) const {
        for (std::size_t i = 0; i < dictionary.count; ++i) {
            if (m_list.asciiEquals(m_list.key(dictionary, i), name))
                return m_list.value(dictionary, i);
        }
        return std::nullopt;
    }

    // Which field of the common classes the key object at `index` names. Archives share one
    // string object per key, so each index is examined once.
    enum class FieldName : std::uint8_t { Other, Class, Keys, Objects };
    FieldName fieldNameAt(std::uint64_t index) {
        for (const auto& [known, name] : m_fieldNames) {
            if (known == index)
                return name;
        }
        FieldName name = FieldName::Other;
        if (m_list.asciiEquals(index, kClassKey))
            name = FieldName::Class;
        else if (m_list.asciiEquals(index, kKeysField))
            name = FieldName::Keys;
        else if (m_list.asciiEquals(index, kObjectsField))
            name = FieldName::Objects;
        // Only the few shared key objects are worth remembering; others are looked at anew.
        if (name != FieldName::Other && m_fieldNames.size() < 16)
            m_fieldNames.emplace_back(index, name);
        return name;
    }

    Value decodeUid(std::uint64_t uid, std::size_t depth) {
        if (uid == 0)
            return Value();
        if (uid >= m_objects.count)
            fail("UID " + std::to_string(uid) + " is out of range");
        if (depth > kMaxNestingDepth)
            fail("nesting deeper than " + std::to_string(kMaxNestingDepth), ErrorKind::TooLarge);
        if (m_onPath[uid])
            fail("object " + std::to_string(uid) + " contains itself");
        if (m_budget-- == 0)
            fail("the archive expands beyond its value budget", ErrorKind::TooLarge);

        const Object object = objectAt(m_list.reference(m_objects, uid), "archived object");
        switch (object.kind) {
        case Kind::Boolean:
            return Value(object.boolean);
        case Kind::Integer:
            return Value(object.integer);
        case Kind::Real:
            return Value(Real{object.real, object.isSinglePrecision});
        case Kind::Date:
            return Value(Date{object.real});
        case Kind::Data:
            return Value(Data(object.payload.begin(), object.payload.end()));
        case Kind::AsciiString:
        case Kind::Utf16String:
            return Value(BinaryPropertyList::text(object));
        case Kind::Dictionary:
            break;
        default:
            fail("object " + std::to_string(uid) + " is not an archivable object");
        }

        m_onPath[uid] = true;
        Value value = decodeInstance(object, depth);
        m_onPath[uid] = false;
        return value;
    }

    // An archived instance: a dictionary naming its class under "$class".
    Value decodeInstance(const Object& instance, std::size_t depth) {
        // One pass over the instance's keys finds the fields of the common classes.
        Fields fields;
        for (std::size_t i = 0; i < instance.count; ++i) {
            switch (fieldNameAt(m_list.key(instance, i))) {
            case FieldName::Class:
                if (!fields.classEntry)
                    fields.classEntry = m_list.value(instance, i);
                break;
            case FieldName::Keys:
                if (!fields.keys)
                    fields.keys = m_list.value(instance, i);
                break;
            case FieldName::Objects:
                if (!fields.objects)
                    fields.objects = m_list.value(instance, i);
                break;
            case FieldName::Other:
                break;
            }
        }
        if (!fields.classEntry)
            fail("archived object without $class");
        const std::size_t classIndex = classOf(uidAt(*fields.classEntry, "$class"));

        switch (m_classes[classIndex].kind) {
        case ClassKind::Dictionary:
            return decodeDictionary(fields, depth);
        case ClassKind::Array:
            return Value(decodeElements(fields.objects, kObjectsField, depth));
        case ClassKind::String:
            return Value(BinaryPropertyList::text(requiredField(instance, kStringField, Kind::AsciiString)));
        case ClassKind::Data:
            break;
        case ClassKind::Date:
        case ClassKind::Other:
            return decodeOtherInstance(instance, classIndex);
        }
        // Data. Older archives name the bytes "NS.bytes".
        const auto name = field(instance, kDataField) ? kDataField : kBytesField;
        const Object bytes = requiredField(instance, name, Kind::Data);
        return Value(Data(bytes.payload.begin(), bytes.payload.end()));
    }

    Value decodeOtherInstance(const Object& instance, std::size_t classIndex) {
        if (m_classes[classIndex].kind == ClassKind::Date) {
            const auto time = field(instance, kTimeField);
            if (!time)
                fail("NSDate without NS.time");
            const Object seconds = objectAt(*time, "NS.time");
            if (seconds.kind == Kind::Integer)
                return Value(Date{static_cast<double>(seconds.integer.asSigned())});
            if (seconds.kind != Kind::Real)
                fail("NS.time is not a number");
            return Value(Date{seconds.real});
        }
        return Value::unknownObject(m_classes[classIndex].name);
    }

    // A field that must hold an object of `kind` (any string kind when `kind` is a string).
    Object requiredField(const Object& instance, std::string_view name, Kind kind) const {
        const auto entry = field(instance, name);
        if (!entry)
            fail("archived object without " + std::string(name));
        const Object object = objectAt(*entry, name);
        const bool matches = kind == Kind::AsciiString ? object.isString() : object.kind == kind;
        if (!matches)
            fail(std::string(name) + " has the wrong type");
        return object;
    }

    // The array object at `entry` (a field of an instance), which must be there.
    Object requiredArray(const std::optional<std::uint64_t>& entry, std::string_view name) const {
        if (!entry)
            fail("archived object without " + std::string(name));
        const Object object = objectAt(*entry, name);
        if (object.kind != Kind::Array)
            fail(std::string(name) + " has the wrong type");
        return object;
    }

    Array decodeElements(const std::optional<std::uint64_t>& entry, std::string_view name, std::size_t depth) {
        const Object list = requiredArray(entry, name);
        Array elements;
        elements.reserve(list.count);
        for (std::size_t i = 0; i < list.count; ++i)
            elements.push_back(decodeUid(uidAt(m_list.reference(list, i), name), depth + 1));
        return elements;
    }

    // A dictionary key: strings as they are, numbers by their description (as the platform's
    // dictionaries take any object as a key); anything else is refused.
    std::string decodeKey(std::uint64_t uid, std::size_t depth) {
        Object object;
        if (uid != 0 && uid < m_objects.count && m_list.read(m_list.reference(m_objects, uid), object) &&
            object.isString()) {
            if (depth > kMaxNestingDepth)
                fail("nesting deeper than " + std::to_string(kMaxNestingDepth), ErrorKind::TooLarge);
            if (m_budget-- == 0)
                fail("the archive expands beyond its value budget", ErrorKind::TooLarge);
            return BinaryPropertyList::text(object);
        }
        auto keyText = decodeUid(uid, depth).stringValue();
        if (!keyText)
            fail("a dictionary key is neither a string nor a number");
        return std::move(*keyText);
    }

    Value decodeDictionary(const Fields& fields, std::size_t depth) {
        const Object keys = requiredArray(fields.keys, kKeysField);
        const Object values = requiredArray(fields.objects, kObjectsField);
        if (keys.count != values.count)
            fail("NS.keys and NS.objects differ in length");
        Dictionary dictionary;
        for (std::size_t i = 0; i < keys.count; ++i) {
            std::string key = decodeKey(uidAt(m_list.reference(keys, i), kKeysField), depth + 1);
            Value value = decodeUid(uidAt(m_list.reference(values, i), kObjectsField), depth + 1);
            // Keys usually come in order (ours always do), so the end is the usual place; a
            // repeated key keeps the last value, as the platform's decoder does.
            dictionary.insert_or_assign(dictionary.end(), std::move(key), std::move(value));
        }
        return Value(std::move(dictionary));
    }

    // The index in m_classes of the class whose descriptor is at `uid`; descriptors are shared
    // by every instance of a class, so each is read once.
    std::size_t classOf(std::uint64_t uid) {
        for (std::size_t i = 0; i < m_classes.size(); ++i) {
            if (m_classes[i].uid == uid)
                return i;
        }
        if (uid == 0 || uid >= m_objects.count)
            fail("class UID " + std::to_string(uid) + " is out of range");
        const Object descriptor = objectAt(m_list.reference(m_objects, uid), "class descriptor");
        if (descriptor.kind != Kind::Dictionary)
            fail("class descriptor is not a dictionary");
        const Object nameObject = requiredField(descriptor, kClassNameKey, Kind::AsciiString);
        ArchivedClass archivedClass{uid, ClassKind::Other, BinaryPropertyList::text(nameObject)};
        const std::string& name = archivedClass.name;
        if (name == kDictionaryClass || name == kMutableDictionaryClass)
            archivedClass.kind = ClassKind::Dictionary;
        else if (name == kArrayClass || name == kMutableArrayClass)
            archivedClass.kind = ClassKind::Array;
        else if (name == kStringClass || name == kMutableStringClass)
            archivedClass.kind = ClassKind::String;
        else if (name == kDataClass || name == kMutableDataClass)
            archivedClass.kind = ClassKind::Data;
        else if (name == kDateClass)
            archivedClass.kind = ClassKind::Date;
        m_classes.push_back(std::move(archivedClass));
        return m_classes.size() - 1;
    }

    const BinaryPropertyList& m_list;
    Object m_objects;
    std::vector<bool> m_onPath;
    std::size_t m_budget;
    std::vector<ArchivedClass> m_classes;
    std::vector<std::pair<std::uint64_t, FieldName>> m_fieldNames;
};

} // namespace

Expected<Value> KeyedUnarchiver::unarchive(std::span<const std::uint8_t> bytes) {
    if (bytes.size() > kMaxInputBytes)
        return Error(ErrorKind::TooLarge, "archive larger than " + std::to_string(kMaxInputBytes >> 20) + " MiB");

    Data converted;
    if (!BinaryPropertyList::hasSignature(bytes)) {
        if (!XmlPropertyList::hasSignature(bytes))
            return Error(ErrorKind::InvalidData, "not a property list");
        auto binary = XmlPropertyList::toBinary(bytes);
        if (!binary)
            return std::move(binary).error();
        converted = std::move(*binary);
        bytes = converted;
    }

    auto list = BinaryPropertyList::open(bytes);
    if (!list)
        return std::move(list).error();
    try {
        return Decoder(*list, bytes.size()).decodeArchive();
    } catch (const DecodeError& decodeError) {
        return Error(decodeError.kind, decodeError.reason);
    }
}

Value KeyedUnarchiver::unarchiveObject(std::span<const std::uint8_t> bytes) {
    Expected<Value> root = unarchive(bytes);
    if (!root) {
        log::debug("plist", "cannot read keyed archive: " + root.error().message());
        return Value();
    }
    return std::move(root).value();
}

} // namespace vexo::plist
