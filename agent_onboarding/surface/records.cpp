/// \file The result records `WalletRegistration` and `AuthToken`.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

/// The class statement: `type(name, (), namespace)` with the names that the compiler would put there.
Object make_class(Module m, const Object& name, const Object& documentation, const Object& annotations,
                  const Object& attributes) {
    attributes.set_item<"__module__">(m.get<"__name__">());
    attributes.set_item<"__qualname__">(name);
    attributes.set_item<"__doc__">(documentation);
    attributes.set_item<"__annotations__">(annotations);
    return call(reinterpret_cast<PyObject*>(&PyType_Type), name, tuple(), attributes);
}

Object auth_token_repr(Module, const Object& self) {
    return text<"AuthToken(token='<redacted>', expires_at={})">(repr(self.get<"expires_at">()));
}

PyMethodDef auth_token_methods[] = {def<"__repr__(self)", auth_token_repr>()};

PyObject* const str_type = reinterpret_cast<PyObject*>(&PyUnicode_Type);
PyObject* const float_type = reinterpret_cast<PyObject*>(&PyFloat_Type);

/// Generating the records' methods leaves the interpreter's built-ins in the namespace, which is not the module's to
/// show.
void forget_builtins(Module m) {
    if (contains(m.globals(), "__builtins__"_s)) check(PyObject_DelItem(m.globals().ptr(), "__builtins__"_s.ptr()));
}

}  // namespace

void define_records(Module m) {
    Object annotations = dict();
    annotations.set_item<"address">(str_type);
    m.set<"WalletRegistration">(m.call<"dataclass">(
        make_class(m, "WalletRegistration"_s, "Returned by register() on successful wallet creation/re-auth."_s,
                   annotations, dict())));

    annotations = dict();
    annotations.set_item<"token">(str_type);
    annotations.set_item<"expires_at">(float_type);
    const Object attributes = dict();
    attributes.set_item<"token">(m.call<"field">(kw<"repr">(false)));
    attributes.set_item<"__repr__">(method(m, auth_token_methods[0]));
    m.set<"AuthToken">(m.call<"dataclass">(
        make_class(m, "AuthToken"_s, "Returned by login() on successful authentication."_s, annotations, attributes)));
    forget_builtins(m);
}

}  // namespace agent_onboarding
