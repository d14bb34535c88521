/// \file The result records `WalletRegistration` and `AuthToken`.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

/// `@dataclass class name: …` Generating its methods leaves the interpreter's built-ins in the namespace, which is not
/// the module's to show.
Object make_record(Module m, const Object& name, const Object& body) {
    const Object record = make_class(m, name, body);
    Object result = m.call<"dataclass">(record);
    discard(m.globals(), "__builtins__"_s);
    return result;
}

/// The token is shown in no representation.
Object auth_token_repr(Module, const Object& self) {
    return fstring<"AuthToken(token='<redacted>', expires_at={})">{repr(self.attr<"expires_at">())};
}

PyMethodDef auth_token_methods[] = {def<"__repr__(self)", auth_token_repr>()};

}  // namespace

Object make_wallet_registration(Module m) {
    const Object annotations = dict{};
    annotations.set_item<"address">(type(PyUnicode_Type));

    const Object body = dict{};
    body.set_item<"__doc__">("Returned by register() on successful wallet creation/re-auth."_s);
    body.set_item<"__annotations__">(annotations);
    return make_record(m, "WalletRegistration"_s, body);
}

Object make_auth_token(Module m) {
    const Object annotations = dict{};
    annotations.set_item<"token">(type(PyUnicode_Type));
    annotations.set_item<"expires_at">(type(PyFloat_Type));

    const Object body = dict{};
    body.set_item<"__doc__">("Returned by login() on successful authentication."_s);
    body.set_item<"__annotations__">(annotations);
    body.set_item<"token">(m.call<"field">(kw<"repr">(false)));
    add_methods(m, body, auth_token_methods);
    return make_record(m, "AuthToken"_s, body);
}

}  // namespace agent_onboarding
