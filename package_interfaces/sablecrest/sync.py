"""What the synchronisation of runtime files knows about this machine."""

import platform

#: The tag that a manifest entry carries when its file is for machines of this kind only, such as "linux-x86_64".
CURRENT_PLATFORM = f"{platform.system()}-{platform.machine()}".lower()
