"""The errors of runtime modules: what was asked for, what was expected and what was found."""


class RuntimeModuleError(Exception):
    """One message; the details are None where the raiser does not know them."""

    def __init__(
        self,
        message: str,
        *,
        module_name: str | None = None,
        relative_path: str | None = None,
        expected_sha256: str | None = None,
        actual_sha256: str | None = None,
    ):
        super().__init__(message)
        self.module_name = module_name
        self.relative_path = relative_path
        self.expected_sha256 = expected_sha256
        self.actual_sha256 = actual_sha256


class RuntimeModuleDownloadIncomplete(RuntimeModuleError):
    """A file that the runtime needs is not in the data directory."""


class RuntimeModuleHashMismatch(RuntimeModuleError):
    """The bytes found are not the bytes that the manifest names."""


class RuntimeModuleReloadFailed(RuntimeModuleError):
    """The module's bytes are right, but it breaks its contract or could not be loaded."""
