# SPDX-License-Identifier: MIT
"""How a program is run with time that passes 50 times as fast."""

import os


def environment(env, library):
    """A copy of env that preloads the library, which is built without a sanitizer."""
    # By its name alone: the list of preloaded libraries ends a path at a blank.
    folder, name = os.path.split(os.path.abspath(library))
    return dict(env, LD_PRELOAD=name, LD_LIBRARY_PATH=folder,
                ASAN_OPTIONS=env.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0")
