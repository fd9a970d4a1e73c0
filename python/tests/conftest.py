# The whole session runs on the simulator: a Maple, a Larch, and a Maple of
# the first revision that one test unplugs.
import qsapi

MAPLE, LARCH, SPARE = 12345678, 10000001, 20000002
SPARE_ID = 2  # the simulator's ids follow the order of the scene
TONE_HZ, TONE_DBM = 1.0e9, -30.0

qsapi.simulate(devices=f"maple2:{MAPLE},larch:{LARCH},maple1:{SPARE}", tones=f"{TONE_HZ}:{TONE_DBM},433.92e6:-50",
               triggers="0.01,0.03")
