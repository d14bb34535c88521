/// \file The result records `WalletRegistration` and `AuthToken`.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

PyMethodDef no_methods[] = {{}};

Object define_wallet_registration(Module m) {
    const Object annotations = dict();
    annotations.set_item<"address">(type(PyUnicode_Type));

    const Object attributes = dict();
    attributes.set_item<"__doc__">("Returned by register() on successful wallet creation/re-auth."_s);
    attributes.set_item<"__annotations__">(annotations);
    return m.call<"dataclass">(make_class(m, "WalletRegistration"_s, attributes, no_methods));
}

/// The token is shown in no representation.
Object auth_token_repr(Module, const Object& self) {
    return text<"AuthToken(token='<redacted>', expires_at={})">(repr(self.get<"expires_at">()));
}

PyMethodDef auth_token_methods[] = {def_method<"__repr__($self)", auth_token_repr>(), {}};

Object define_auth_token(Module m) {
    const Object annotations = dict();
    annotations.set_item<"token">(type(PyUnicode_Type));
    annotations.set_item<"expires_at">(type(PyFloat_Type));

    const Object attributes = dict();
    attributes.set_item<"__doc__">("Returned by login() on successful authentication."_s);
    attributes.set_item<"__annotations__">(annotations);
    attributes.set_item<"token">(m.call<"field">(kw<"repr">(false)));
    return m.call<"dataclass">(make_class(m, "AuthToken"_s, attributes, auth_token_methods));
}

/// Generating the records' methods leaves the interpreter's built-ins in the namespace, which is not the module's to
/// show.
void forget_builtins(Module m) {
    if (contains(m.globals(), "__builtins__"_s)) m.globals().remove_item("__builtins__"_s);
}

}  // namespace

void define_records(Module m) {
    m.set<"WalletRegistration">(define_wallet_registration(m));
    m.set<"AuthToken">(define_auth_token(m));
    forget_builtins(m);
}

}  // namespace agent_onboarding
