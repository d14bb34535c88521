"""The era table that the service answers with unless it is given another."""

ERAS_BY_MARKET = {
    "7": [
        {"era_number": 11, "state": "closed", "named_universe": "majors"},
        {
            "era_number": 12,
            "state": "active",
            "named_universe": "majors",
            "allowed_named_universes": ["majors", "midcaps"],
            "signal_pools": [
                {"pool_id": 1, "allowed_named_universes": ["majors", "defi"]},
                {"pool_id": 2, "allowed_named_universes": "midcaps"},
            ],
            "universes": [{"id": "memes"}, "majors"],
        },
    ],
    "8": [
        {"era_number": 3, "state": "upcoming", "universes": {"rates": {}, "credit": {}}},
        {"era_number": 2, "state": "closed", "named_universe": "credit"},
    ],
    "9": [
        {"era_number": 20, "state": "closed", "named_universe": "energy"},
        {"era_number": 21, "state": "Active", "signal_pools": [{"pool_id": 5, "allowed_named_universes": ["metals"]}]},
        {"era_number": 22, "state": "active", "named_universe": "grains"},
    ],
    "10": [],
}
