#!/usr/bin/env python3
"""picture.py CHROMIUM PELMSIM PLUGIN EXAMPLES SCRIPT FILE: a picture of the page, for the documents."""

import base64
import os
import subprocess
import sys
import tempfile

import recordings
from chromium import Chromium

program, simulator, plugin, examples, script, picture = sys.argv[1:]
os.environ["PATH"] = os.path.dirname(os.path.abspath(plugin)) + ":" + os.environ["PATH"]
recording = recordings.of(script, simulator, plugin, examples)
with tempfile.NamedTemporaryFile(suffix=".html") as page:
    subprocess.run([simulator, "show", "--html", "-"], check=True, stdout=page,
                   input=recording.encode())
    browser = Chromium(program, "--hide-scrollbars")
    browser.call("Emulation.setDeviceMetricsOverride", width=1400, height=800, deviceScaleFactor=1,
                 mobile=False)
    browser.open(page.name)
    browser.press("t")
    browser.evaluate("document.querySelector('#diagram').scrollTop -= 100")
    browser.next_picture()
    shot = browser.call("Page.captureScreenshot", format="png")
    browser.close()
with open(picture, "wb") as file:
    file.write(base64.b64decode(shot["data"]))
