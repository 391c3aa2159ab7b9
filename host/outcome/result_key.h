#pragma once
// The value types that name a result in the store.
#include "host/com/guid.h"
#include "host/outcome/enums.h"

#include <compare>
#include <string>

// The object a result belongs to: a slab (eDs_Slab) with its slab id, for instance.
class CKQ_DsObject {
public:
    CKQ_DsObject() = default;
    CKQ_DsObject(Outcome64Enums::eDsElementType type, int id) : m_type(type), m_id(id) {}

    Outcome64Enums::eDsElementType GetType() const { return m_type; }
    int GetID() const { return m_id; }

    friend bool operator==(const CKQ_DsObject&, const CKQ_DsObject&) = default;
    friend auto operator<=>(const CKQ_DsObject&, const CKQ_DsObject&) = default;

private:
    Outcome64Enums::eDsElementType m_type = Outcome64Enums::eDs_Undefined;
    int m_id = 0;
};

// The case a result was computed for: a load case (eDs_LoadCase) with its number. The sub-case
// number and the flag are the host's; they are kept and are part of the key.
class CResultCase {
public:
    CResultCase() = default;
    CResultCase(Outcome64Enums::eDsElementType type, int number, short subCase, bool flag)
        : m_type(type), m_number(number), m_subCase(subCase), m_flag(flag) {}

    Outcome64Enums::eDsElementType GetType() const { return m_type; }
    int GetNumber() const { return m_number; }
    short GetSubCase() const { return m_subCase; }
    bool GetFlag() const { return m_flag; }

    friend bool operator==(const CResultCase&, const CResultCase&) = default;
    friend auto operator<=>(const CResultCase&, const CResultCase&) = default;

private:
    Outcome64Enums::eDsElementType m_type = Outcome64Enums::eDs_Undefined;
    int m_number = 0;
    short m_subCase = 0;
    bool m_flag = false;
};

// The whole name of a stored result. Two keys name the same result when every part is equal.
class CKQ_ResultKey {
public:
    CKQ_ResultKey() = default;
    CKQ_ResultKey(const GUID& resultType, const CKQ_DsObject& object, const CResultCase& resultCase,
                  unsigned char flags, Outcome64Enums::eCoordSystem coordSystem,
                  Outcome64Enums::eResLocation location, Outcome64Enums::eEnvelopeExtreme envelope)
        : m_resultType(resultType), m_object(object), m_case(resultCase), m_flags(flags),
          m_coordSystem(coordSystem), m_location(location), m_envelope(envelope) {}

    const GUID& GetResultType() const { return m_resultType; }
    const CKQ_DsObject& GetDsObject() const { return m_object; }
    const CResultCase& GetResultCase() const { return m_case; }
    unsigned char GetFlags() const { return m_flags; }
    Outcome64Enums::eCoordSystem GetCoordSystem() const { return m_coordSystem; }
    Outcome64Enums::eResLocation GetResLocation() const { return m_location; }
    Outcome64Enums::eEnvelopeExtreme GetEnvelopeExtreme() const { return m_envelope; }

    // A readable one-line form for messages, e.g.
    // "{AC98000C-...} slab 1, load case 1/0/0, flags 0, cs 1, loc 0, env 0".
    std::string ToString() const;

    friend bool operator==(const CKQ_ResultKey&, const CKQ_ResultKey&) = default;
    friend auto operator<=>(const CKQ_ResultKey&, const CKQ_ResultKey&) = default;

private:
    GUID m_resultType = GUID_NULL;
    CKQ_DsObject m_object;
    CResultCase m_case;
    unsigned char m_flags = 0;
    Outcome64Enums::eCoordSystem m_coordSystem = Outcome64Enums::eCS_Global;
    Outcome64Enums::eResLocation m_location = Outcome64Enums::eRL_Element;
    Outcome64Enums::eEnvelopeExtreme m_envelope = Outcome64Enums::eEE_None;
};
