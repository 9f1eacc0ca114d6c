"""The script module of Tezcore under the name that document histories use
(``import tez``), so that a history written by ``tez script run`` or by a
Python program replays in plain Python. Everything comes from tezcore."""

from tezcore import *  # noqa: F401,F403
from tezcore import Error, __version__  # noqa: F401
