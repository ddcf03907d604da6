#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Benchmark inputs.
  gen_tree.py tree SCALE DIR   device tree, brand birch, region EU; scale 1 holds
                               about 5,000 property lines, scale N N times that
  gen_tree.py lines N FILE     one property file of N lines, no name twice"""
import os
import random
import sys

PREFIXES = ["ro.zelva.", "persist.sys.", "ro.product.", "ro.vendor.zelva.", "persist.vendor.",
            "ro.config.", "persist.radio.", "ro.build.", "sys.", "ro.sys."]
PARTS = "camera audio display wifi nfc power thermal telephony ims volte launcher theme locale " \
        "bluetooth gps sensor charger fingerprint media settings security network sim ota".split()
WORDS = "enable support mode level timeout default max min feature policy version config path " \
        "list type count delay switch region carrier hdr refresh volume boost profile".split()
VALUES = ["true", "false", "0", "1", "2", "60", "120", "3000", "auto", "disabled", "en-GB",
          "/my_product/media/bootanimation/bootanimation.zip", "PHB110_11_A.15",
          "zelva/PHB110EEA/OP5929L1:14/UKQ1.230924.001/R.1a2b3c4:user/release-keys"]
# Partition -> build.prop lines at scale 1. All but /odm are mounted twice:
# under /mnt/vendor early in boot, then at the root.
PARTITIONS = {"/odm": 150, "/my_preload": 60, "/my_wisp": 40, "/my_stock": 120,
              "/my_region/global": 60, "/my_region/global/B": 40, "/my_product": 280,
              "/my_region": 150, "/my_region/B": 40, "/my_product/cust/EU": 80,
              "/my_carrier": 150, "/my_carrier/cust": 60, "/my_bigball": 80,
              "/my_engineering": 30, "/my_manifest": 40, "/my_company": 150,
              "/my_product/special": 30}
FIXED = {"/my_region": {"ro.zelva.pipeline.region": "EU"},
         "/my_carrier": {"ro.zelva.image.my_carrier.type": "carrier",
                         "ro.zelva.image.my_carrier.version_name": "EU-V11.0.1"},
         "/my_company": {"ro.zelva.image.my_company.date": "20240601",
                         "ro.zelva.image.my_company.type": "EUEX"}}
SET_PARTITIONS = ["/my_carrier", "/my_region", "/my_product", "/my_company", "/my_bigball"]
SETS = {"SimSwitchCurrentTime": "orange", "SimSwitchFirstTime": "vodafone",
        "switchCarrierChannel": "amazon", "regionSwitch": "EUEX"}
NV_FLAG, NV_KEY, SSV_KEY = "00011010", "tmobile", "vdf-de"
RESERVE, DATA, COTA = "/mnt/vendor/zelvareserve/system/ssv/", "/data/system/customize/", \
    "/mnt/cota/carrier"

rng = random.Random(20240601)
shared = []  # names that several partitions set, so that later ones override


def new_name(used):
    while True:
        name = (rng.choice(PREFIXES) + rng.choice(PARTS) + "." + rng.choice(WORDS) + "_" +
                rng.choice(WORDS) + "_" + str(rng.randrange(1000)))
        if name not in used:
            used.add(name)
            return name


def props(count, overlap=0.15, fixed=None):
    """|count| lines, names unique: the fixed ones, some shared, a comment now and then."""
    lines = [f"{k}={v}" for k, v in (fixed or {}).items()]
    used = set(fixed or {})
    while len(lines) < count:
        if len(lines) % 40 == 0:
            lines.append(f"# {rng.choice(PARTS)} {rng.choice(WORDS)} properties")
            continue
        if shared and rng.random() < overlap:
            name = rng.choice(shared)
            if name in used:
                continue
            used.add(name)
        else:
            name = new_name(used)
        lines.append(f"{name}={rng.choice(VALUES)}")
    return lines


def tree(scale, root):
    global shared
    shared = [new_name(set()) for _ in range(300 * scale)]
    files = {}  # device path -> lines
    for part, count in PARTITIONS.items():
        own = {"build.prop": props(count * scale, fixed=FIXED.get(part))}
        if part == "/my_product":
            own["build.prop"].insert(1, "import /my_product/etc/camera.prop")
            own["etc/camera.prop"] = props(60 * scale)
            own["etc/nvmap.prop"] = [f"carrier{i:03d}=op{i:03d}" for i in range(40)] + \
                [f"{NV_KEY}=vodafone"]
            own["etc/flags.prop"] = [f"{i:08b}=op{i:03d}" for i in range(20)] + \
                [f"{NV_FLAG}={NV_KEY}"]
            own["etc/custom_map.prop"] = [f"company{i:02d}=region{i:02d}" for i in range(20)]
        if part in SET_PARTITIONS:
            for key in (NV_KEY, SSV_KEY):
                own[f"etc/build.{key}.prop"] = props(20 * scale)
            for set_name, key in SETS.items():
                for n in range(2):
                    own[f"properties/{key}/{set_name}/{set_name.lower()}_{n}.prop"] = \
                        props(15 * scale, overlap=0.3)
                own[f"properties/telefonica/{set_name}/unused.prop"] = props(10)  # never read
        for mount in [part] + ([] if part == "/odm" else ["/mnt/vendor" + part]):
            files.update({f"{mount}/{rel}": lines for rel, lines in own.items()})
    files["/system_ext/etc/build.prop"] = ["ro.zelva.image.system_ext.brand=birch"] + props(20)
    files["/my_product/cust/EU/etc/devicename.cfg"] = ["market=Zelva Find X", "type=phone",
                                                       "model=PHB110", "ROM=256"]
    files["/sys/block/sda/size"] = ["500118192"]
    # Reserve partition: the switch keys in their current name=value form.
    for name, prop, value in [("sim_switch_first_file", "sys.sim.switch.first", "vodafone"),
                              ("sim_switch_current_file", "sys.sim.switch.current", "orange"),
                              ("region_switch_file", "sys.region.switch.first", "EUEX"),
                              ("sim_switch_convert_file", "sys.sim.switch.convert", "true"),
                              ("sim_action_file", "sys.zelva.switch.operator", "vodafone")]:
        files[RESERVE + name] = [f"{prop}={value}"]
    files[RESERVE + "sim_switch_common_prop_file"] = props(10 * scale)
    files[RESERVE + "force_connect_internet_prop_file"] = ["ro.zelva.internet.force.connect=0"]
    files["/mnt/vendor/zelvareserve/radio/exp_operator_switch.config"] = [NV_FLAG]
    # Data partition overrides, a data copy of a key, and a COTA image with its request.
    files[DATA + "cloud-config/data_cloud_prop_file.prop"] = props(100 * scale)
    files[DATA + "empty_appchannel_prop_file.prop"] = props(20 * scale)
    files[DATA + "data_common_prop_file.prop"] = props(
        30 * scale, fixed={"persist.sys.channel.info": "amazon"})
    files[DATA + "sim_switch/sim_switch_current_file"] = ["sys.sim.switch.current=orange"]
    files[COTA + "/build.prop"] = props(
        150 * scale, fixed={"ro.zelva.image.my_bigball.version_name": "COTA_1"})
    for set_name, key in SETS.items():
        files[f"{COTA}/properties/{key}/{set_name}/cota.prop"] = props(20 * scale)
    files["/data/cota/cota_mount_info.prop"] = [f"carrier={COTA}",
                                               "ro.build.cota.version_name=EU_U_COTA_7"]
    for path, lines in files.items():
        write(root + path, lines)
    count = sum(1 for lines in files.values() for line in lines if "=" in line)
    print(f"{root}: {len(files)} files, {count} property lines")


def write(path, lines):
    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    with open(path, "w") as f:
        f.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "tree":
        tree(int(sys.argv[2]), sys.argv[3])
    elif len(sys.argv) == 4 and sys.argv[1] == "lines":
        used = set()
        write(sys.argv[3], [f"{new_name(used)}={rng.choice(VALUES)}"
                            for _ in range(int(sys.argv[2]))])
    else:
        sys.exit(__doc__)
