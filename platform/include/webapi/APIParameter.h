#pragma once

#include <utility>

namespace KIVO {

/// Whether a request must carry a parameter.
enum PARAM_NECESSITY { PARAM_REQUIRED = 0, PARAM_OPTIONAL = 1 };

/// One request parameter as fetched with a type: its value, whether the request carries it, and whether it
/// can be used.
template <typename T>
class APIParameter {
public:
    /// A parameter that the request does not carry; invalid when it is required.
    static APIParameter Missing(PARAM_NECESSITY necessity) {
        return APIParameter({}, false, necessity == PARAM_REQUIRED);
    }
    /// A parameter that the request carries, but not with the type T.
    static APIParameter Mistyped() { return APIParameter({}, true, true); }
    /// A parameter that the request carries with the type T.
    static APIParameter Present(T value) { return APIParameter(std::move(value), true, false); }

    /// Gives the value to use when the request does not carry the parameter. Changes nothing else.
    void SetDefault(const T& value) {
        if (!m_isSet) {
            m_value = value;
        }
    }

    /// True when the request carries the parameter, whatever its type.
    bool IsSet() const { return m_isSet; }
    /// True when a required parameter is missing, or a present one does not have the type T.
    bool IsInvalid() const { return m_isInvalid; }
    /// The value; the default when the parameter is missing; T() when it is invalid.
    const T& Get() const { return m_value; }

private:
    APIParameter(T value, bool isSet, bool isInvalid)
        : m_value(std::move(value)), m_isSet(isSet), m_isInvalid(isInvalid) {}

    T m_value;
    bool m_isSet;
    bool m_isInvalid;
};

}  // namespace KIVO
