"""The sablecrest package: what `sablecrest.agent_onboarding` needs of the modules beside it.

Importing the package is cheap; the onboarding module and everything else load when they are asked for.
"""

from sablecrest.skills import list_skills

__all__ = ["list_skills"]
