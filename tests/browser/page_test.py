#!/usr/bin/env python3
"""page_test.py CHROMIUM PELMSIM PLUGIN EXAMPLES: a recording's page, in a browser that clicks."""

import os
import subprocess
import sys
import tempfile
import unittest

import recordings
from chromium import Chromium

browser_program, simulator, plugin, examples = sys.argv[1:5]


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="pelm-page-")
        cls.demo = recordings.of(examples + "/demo.sim", simulator, plugin, examples)
        cls.browser = Chromium(browser_program)

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.folder.cleanup()

    def open(self, recording):
        name = os.path.join(self.folder.name, "page.html")
        with open(name, "wb") as page:
            subprocess.run([simulator, "show", "--html", "-"], check=True, stdout=page,
                           input=recording.encode())
        self.browser.call("Emulation.setDeviceMetricsOverride", width=1400, height=900,
                          deviceScaleFactor=1, mobile=False)
        self.browser.open(name)
        self.browser.next_picture()

    def tearDown(self):
        told = [each for each in self.browser.events
                if each.get("method") in ("Runtime.exceptionThrown", "Runtime.consoleAPICalled")]
        self.assertEqual(told, [])
        asked = {each["params"]["request"]["url"].partition(":")[0] for each in self.browser.events
                 if each.get("method") == "Network.requestWillBeSent"}
        self.assertLessEqual(asked, {"file"})

    def text(self, selector):
        """Of all such elements, with one space for any room between the words."""
        return self.browser.evaluate(
            f"Array.from(document.querySelectorAll({selector!r}), each => each.innerText)"
            ".join(' | ').replace(/\\s+/g, ' ')")

    def count(self, selector):
        return self.browser.evaluate(f"document.querySelectorAll({selector!r}).length")

    def chosen(self):
        return self.text("[aria-selected=true] .label")

    def colour(self):
        return self.browser.evaluate("getComputedStyle(document.body).backgroundColor")


class ReadingAPage(Page):
    def setUp(self):
        self.open(self.demo)

    def test_has_a_lane_for_each_peer_and_a_row_for_each_event(self):
        self.assertEqual(self.text(".head"), "daemon | plugin interfaces")
        self.assertIn(f"{len(self.demo.splitlines())} events", self.text("#whole"))
        self.assertIn("A plugin registers and is given the configuration.", self.text(".heading"))
        self.assertIn("activate ✓ ok", self.text(".row.arrow"))

    def test_a_click_shows_the_frames_indented(self):
        self.browser.click(".row.arrow .label")
        self.assertEqual(self.chosen(), "register ✓ ok")
        self.assertIn("interfaces → daemon: register", self.text("#details h2"))
        self.assertIn("Frame from interfaces: number 0", self.text("#details h3"))
        first = self.browser.evaluate("document.querySelector('.xml').textContent")
        begin = "<rpc>\n  <method>register</method>\n  <params>\n    <plugin-name>interfaces</"
        self.assertEqual(first[:len(begin)], begin)
        self.assertIn("<reply> <result/> <id>1</id> </reply>", self.text("#details .xml"))

    def test_goes_from_what_is_asked_to_its_answer_and_by_keys_on(self):
        self.browser.click(".row.arrow:has(.right) .label")
        self.assertEqual(self.chosen(), 'publish /interfaces/interface[name="eth0"] add|cfgr')
        self.browser.click("#details .link")
        self.assertRegex(self.chosen(), "add.cfgr ✓ ok [0-9.]+ m?s$")
        self.browser.press("Escape")
        self.assertEqual(self.count(".detailed"), 0)
        self.browser.press("ArrowDown")
        self.assertEqual(self.chosen(), "A plugin registers and is given the configuration.")
        active = "document.querySelector('[role=listbox]').getAttribute('aria-activedescendant')"
        self.assertEqual(self.count("#" + self.browser.evaluate(active)), 1)

    def test_finds_the_first_trouble(self):
        self.browser.click("#first")
        self.assertIn("✗ refused: error 22 That is no address.", self.chosen())
        self.assertIn("<message>That is no address.</message>", self.text("#details .xml"))
        self.assertEqual(self.text("#troubles"), "1 of 1 trouble")

    def test_searches_frames_too_and_steps_through_what_it_finds(self):
        self.browser.press("/")
        self.browser.write("THAT IS NO")
        found = int(self.text("#found"))
        self.browser.press("Enter")
        self.assertEqual(self.text("#found"), f"1 of {found}")
        self.assertEqual(self.count(".found[aria-selected=true]"), 1)
        self.browser.press("Enter")
        self.assertEqual(self.text("#found"), f"2 of {found}")
        self.browser.press("Escape")
        self.assertEqual(self.count(".found"), 0)

    def test_shows_frames_as_rows_when_they_are_wanted(self):
        self.assertEqual(self.count(".row.frame"), 0)
        self.browser.click("#frames")
        self.assertIn("frame 0, 577 bytes: <rpc>", self.text(".row.frame"))

    def test_is_light_or_dark_as_the_system_is_or_as_one_likes(self):
        def prefer(scheme):
            given = [{"name": "prefers-color-scheme", "value": scheme}]
            self.browser.call("Emulation.setEmulatedMedia", features=given)

        prefer("light")
        light = self.colour()
        prefer("dark")
        dark = self.colour()
        self.assertNotEqual(light, dark)
        self.browser.click("#theme")
        self.assertEqual(self.colour(), light)
        prefer("light")
        self.browser.click("#theme")
        self.assertEqual(self.colour(), dark)


class OtherRecordings(Page):
    def test_one_that_is_cut_off_says_so_and_who_was_not_answered(self):
        self.open(recordings.cut_off(self.demo))
        self.browser.press("t")
        self.assertIn("✗ never answered: the recording ends before", self.chosen())
        self.browser.press("t")
        self.assertEqual(self.chosen(), "The recording is cut off here ▲ unreadable")

    def test_an_empty_one_is_a_page_too(self):
        self.open("")
        self.assertEqual(self.text("#empty"), "No events are in this recording.")

    def test_markup_in_a_recording_is_text(self):
        self.open(recordings.hostile())
        rows = self.browser.evaluate("document.querySelector('.row').getAttribute('aria-setsize')")
        self.browser.press("f")
        for _ in range(int(rows) + 2):
            self.browser.press("ArrowDown")
        self.browser.press("/")
        self.browser.write("</script>")
        self.assertNotEqual(self.text("#found"), "0")
        self.assertIn("<img src=x onerror=", self.text(".label"))
        self.assertIn("<img src=x onerror=", self.text("#details"))
        self.assertEqual(self.count("img"), 0)
        self.assertEqual(self.count("script"), 2)
        self.assertNotEqual(self.browser.evaluate("document.title"), "ran")

    def test_nothing_else_could_run_or_be_asked_for(self):
        self.open(self.demo)
        refused = self.browser.evaluate("""new Promise(done => {
            const refused = [];
            document.addEventListener("securitypolicyviolation", event => {
                refused.push(event.effectiveDirective);
                if (refused.length === 4)
                    done(refused.sort().join(" "));
            });
            const script = document.createElement("script");
            script.textContent = "document.title = 'ran'";
            document.body.append(script);
            const button = document.createElement("button");
            button.setAttribute("onclick", "document.title = 'ran'");
            button.click();
            const image = document.createElement("img");
            image.src = "http://127.0.0.1:9/";
            document.body.append(image);
            fetch("http://127.0.0.1:9/").catch(() => 0);
        })""")
        self.assertEqual(refused, "connect-src img-src script-src-attr script-src-elem")
        self.assertNotEqual(self.browser.evaluate("document.title"), "ran")
        self.browser.events.clear()  # what was refused is among what was to be sent

    def test_ten_thousand_events_are_at_hand(self):
        self.open(recordings.long(10000))
        opened = self.browser.evaluate("performance.getEntriesByType('navigation')[0].loadEventEnd")
        self.assertEqual(self.text("#troubles"), "25 troubles")
        self.browser.press("End")
        self.assertIn("publish /system/row[2499] mod ✗ refused: error 5", self.chosen())
        self.assertLess(self.count(".row"), 150)
        self.browser.press("/")
        self.browser.write("<n>1234</n>")
        self.assertEqual(self.text("#found"), "1")
        print(f"10000 events: open after {opened:.0f} ms, "
              f"a step of scrolling takes {self.work_of_scrolling():.1f} ms")

    def work_of_scrolling(self):
        """Milliseconds of the processor for a step that shows other rows, on average."""
        def work():
            metrics = self.browser.call("Performance.getMetrics")["metrics"]
            return next(each["value"] for each in metrics if each["name"] == "TaskDuration")

        self.browser.call("Performance.enable", timeDomain="threadTicks")
        before = work()
        self.browser.evaluate("""(async () => {
            for (let step = 0; step < 100; ++step) {
                document.querySelector("#diagram").scrollTop = step * 600;
                await new Promise(requestAnimationFrame);
            } })()""")
        return (work() - before) * 10


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
