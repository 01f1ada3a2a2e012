#!/usr/bin/python3
"""The page of `brenloft report` and of `brenloft serve` as a person sees it, in Chromium: page_test.py TOOL"""
import csv
import decimal
import io
import os
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import beacon_week  # noqa: E402

try:
    from selenium import webdriver
    from selenium.common.exceptions import StaleElementReferenceException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    webdriver = None

CHROMIUM, DRIVER = '/usr/bin/chromium', '/usr/bin/chromedriver'
END = 1795271520  # 2026-11-21 15:32 in Berlin
SINCE = END - 7 * beacon_week.DAY
TOOL = sys.argv[1] if len(sys.argv) > 1 else ''
HOSTILE = '<img src=x onerror="document.title=1">'


def run(*arguments):
    done = subprocess.run([TOOL, *arguments], capture_output=True, text=True, timeout=60, check=False,
                          env={**os.environ, 'TZ': 'Europe/Berlin'})
    assert done.returncode == 0, done.stderr
    return done.stdout


def make_week(folder, count=0):
    """A history of a week, and its page; what every later command needs to find it."""
    capture, settings = os.path.join(folder, 'week.btsnoop'), os.path.join(folder, 'brenloft.toml')
    beacon_week.write_capture(capture, END, count=count)
    beacon_week.write_settings(settings, count=count)
    where = ['-C', folder, '--config', settings]
    run('scan', '--uuid', '180F', '--source', 'capture:' + capture, '--history', '--format', 'jsonl', *where)
    page = os.path.join(folder, 'page.html')
    run('report', '-o', page, '--since', f'@{SINCE}', '--until', f'@{END}', '--title', 'Northside Foods', *where)
    return page, where


def open_browser(folder):
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for argument in ('--headless=new', '--disable-gpu', '--disable-dev-shm-usage', '--disable-background-networking',
                     '--disable-extensions', '--no-first-run', '--user-data-dir=' + os.path.join(folder, 'profile')):
        options.add_argument(argument)
    if os.geteuid() == 0:
        options.add_argument('--no-sandbox')
    options.set_capability('goog:loggingPrefs', {'browser': 'ALL', 'performance': 'ALL'})
    return webdriver.Chrome(service=Service(DRIVER), options=options)


class Live:
    """`brenloft serve`, and `brenloft scan` beside it on a pipe."""

    def __init__(self, folder):
        self.folder = tempfile.TemporaryDirectory(prefix='live-', dir=folder)
        self.where = ['-C', self.folder.name, '--config', os.path.join(folder, 'brenloft.toml')]
        with socket.create_server(('127.0.0.1', 0)) as free:
            self.port = free.getsockname()[1]
        self.url = f'http://127.0.0.1:{self.port}/'
        self.beacons = {beacon.name: beacon for beacon in beacon_week.beacons()}
        self.clock = END

    def __enter__(self):
        self.radio = subprocess.Popen([TOOL, 'scan', '--uuid', '180F', '--source', 'capture:-?paced', '--history',
                                       '--format', 'none', *self.where], stdin=subprocess.PIPE)
        self.radio.stdin.write(b'btsnoop\0' + struct.pack('>II', 1, 1002))
        for name in self.beacons:
            self.hear(name, 5)
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()
        self.radio.stdin.close()
        self.radio.terminate()
        self.radio.wait(20)
        self.folder.cleanup()

    def hear(self, name, degrees, emergency=0):
        """At once: in the capture hardly any time passes."""
        self.clock += .001
        beacon = self.beacons[name]
        frame = bytearray(beacon_week.frame(beacon, END, END, degrees))
        frame[6] = emergency
        self.radio.stdin.write(beacon_week.packet(self.clock, beacon_week.advertisement(beacon, bytes(frame), -60)))
        self.radio.stdin.flush()

    def start(self):
        self.server = subprocess.Popen([TOOL, 'serve', '--listen', str(self.port), '--title', 'Northside Foods', *self.where],
                                       stderr=subprocess.PIPE, text=True)
        self.server.stderr.readline()  # where it is

    def stop(self):
        self.server.terminate()
        assert self.server.wait(20) == 0


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix='brenloft-page-')
        cls.page, cls.where = make_week(cls.folder.name)
        cls.url = 'file://' + cls.page
        cls.browser = open_browser(cls.folder.name)
        cls.browser.get('about:blank')
        cls.browser.get_log('performance')  # of the browser's own first page
        cls.ids = {beacon.name: beacon.id for beacon in beacon_week.beacons()}

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.folder.cleanup()

    is_cut = False  # the server was stopped on purpose

    def setUp(self):
        self.resize(1280, 1000)
        self.browser.execute_cdp_cmd('Emulation.setEmulatedMedia', {'features': []})

    def tearDown(self):
        """Nothing is fetched from elsewhere, and nothing is complained of."""
        asked = [entry for entry in self.browser.get_log('performance')
                 if '"Network.requestWillBeSent"' in entry['message'] and self.url not in entry['message']]
        self.assertEqual(asked, [])
        self.assertEqual([entry for entry in self.browser.get_log('browser')
                          if not (self.is_cut and 'ERR_CONNECTION_REFUSED' in entry['message'])], [])

    # What a person does and sees.

    def resize(self, width, height):
        self.browser.execute_cdp_cmd('Emulation.setDeviceMetricsOverride', {
            'width': width, 'height': height, 'deviceScaleFactor': 1, 'mobile': False})

    def open(self, view=''):
        self.browser.get('about:blank')
        self.browser.get(self.url + view)

    def open_beacon(self, name, view='r=week'):
        self.open(f'#b={self.ids[name]}&{view}')

    def one(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.one(selector).text

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def press(self, *keys):
        actions = webdriver.ActionChains(self.browser)
        for key in keys:
            if isinstance(key, tuple):
                actions.key_down(key[0]).send_keys(key[1]).key_up(key[0])
            else:
                actions.send_keys(key)
        actions.perform()

    def focused(self):
        return self.browser.switch_to.active_element.text

    def await_true(self, condition, why):
        # What is drawn anew while it is looked at is looked at again.
        wait = WebDriverWait(self.browser, 10, poll_frequency=.05, ignored_exceptions=[StaleElementReferenceException])
        wait.until(lambda _: condition(), why)

    def readings(self):
        """What stands beside each chart's name, by name."""
        return {head.find_element(By.TAG_NAME, 'b').text: head.find_element(By.TAG_NAME, 'span').text
                for head in self.all('.ch')}

    def pieces(self, name, width):
        rows = run('history', 'export', '--every', width, '-F', 'csv', '--since', f'@{SINCE}', '--until', f'@{END}',
                   '--beacon', name, *self.where)
        return list(csv.DictReader(io.StringIO(rows)))

    def test_overview_says_what_needs_attention_first(self):
        self.open()
        self.assertEqual([line.text for line in self.all('#att .tag')], ['Emergency', 'Alarm', 'Silent', 'Battery'])
        self.assertEqual([line.text for line in self.all('#att a')],
                         ['Staff tag 7', 'Poultry fridge', 'Dock 2', 'Server cupboard'])
        self.assertEqual(len(self.all('#places li')), 5)
        self.assertEqual(len(self.all('.cols tbody tr')), 15)
        self.assertIn('Heard nothing from 09:31 to 10:31 (60 min)', self.text('.note'))
        self.assertIn('Report of Sat 21 Nov 2026, 15:32 CET', self.text('#when'))

    def test_names_are_text(self):
        self.open()
        self.assertEqual(self.all('img'), [])
        self.assertIn(HOSTILE, [row.text for row in self.all('.cols tbody bdi')])
        self.open_beacon(HOSTILE)
        self.assertIn(HOSTILE, self.text('#dn'))
        self.assertEqual(self.browser.title, HOSTILE + ' · Northside Foods')
        self.assertEqual(self.all('img'), [])

    def test_charts_have_the_values_of_the_history(self):
        self.open_beacon('Poultry fridge')
        pieces = self.pieces('Poultry fridge', '15m')
        self.assertEqual(int(self.one('.cv').get_attribute('data-points')), len(pieces))
        spike = max(range(len(pieces)), key=lambda i: float(pieces[i]['temperature_max']))
        self.script('arguments[0].focus()', self.one('#charts'))
        for key, piece in (('HOME', pieces[0]), ('END', pieces[-1])):
            self.press(getattr(Keys, key))
            self.assert_reading(piece)
        self.press(Keys.HOME)
        step = max(1, round(len(pieces) / 120))
        for _ in range(spike // step):
            self.press(Keys.ARROW_RIGHT)
        self.assert_reading(pieces[spike // step * step])

    def assert_reading(self, piece):
        shown = self.readings()['Temperature']
        mean, low, high = (str(decimal.Decimal(piece['temperature_' + part]).quantize(
            decimal.Decimal('.1'), decimal.ROUND_HALF_UP)) for part in ('mean', 'min', 'max'))
        at = time.strftime('%H:%M', time.gmtime(float(piece['time']) + 3600 + 450))
        self.assertIn(at, shown)
        self.assertTrue(shown.endswith(f'{mean} ({low} to {high})') or (low == high and shown.endswith(mean)),
                        f'{shown}: {piece}')

    def test_one_high_reading_is_drawn_in_a_week(self):
        self.open_beacon('Poultry fridge')
        self.assertEqual(self.readings()['Temperature'], 'lowest 1.9, highest 19.3')
        at = (END - 3 * beacon_week.DAY - SINCE) / (END - SINCE)
        painted = self.script('''
            const canvas = document.querySelector(".cv canvas"), scale = canvas.width / canvas.clientWidth;
            const left = 54 * scale, x = Math.round(left + (canvas.width - left) * arguments[0]);
            const data = canvas.getContext("2d").getImageData(x - 4, 0, 8, canvas.height / 2).data;
            let pixels = 0;
            for (let i = 0; i < data.length; i += 4) if (data[i + 2] > data[i] + 80 && data[i + 3] > 100) ++pixels;
            return pixels;''', at)
        self.assertGreater(painted, 40)

    def test_gaps_of_the_beacon_and_of_the_radio_are_told_apart(self):
        self.open_beacon('Dock 2', 'r=day')
        self.assertEqual(len(self.all('.pres .in')), 1)
        self.assertEqual(len(self.all('.pres .ra')), 1)
        self.assertRegex(self.readings()['Presence'], r'heard 9[12]\.\d %')
        self.open_beacon('Milk, front', 'r=day')
        self.assertEqual(self.readings()['Presence'], 'heard 100 %')

    def test_keys(self):
        self.open()
        self.script('arguments[0].focus()', self.one('.cols a'))
        self.press(Keys.ARROW_DOWN)
        second = self.focused()
        self.press(Keys.ENTER)
        self.await_true(lambda: self.one('#detail').is_displayed(), 'Enter opens the beacon')
        self.assertIn(second, self.focused())
        self.press('1')
        self.assertEqual(self.text('#ranges [aria-pressed=true]'), '6 h')
        before = self.text('#span')
        self.press((Keys.SHIFT, Keys.ARROW_LEFT))
        self.assertNotEqual(self.text('#span'), before)
        self.press('?')
        self.assertTrue(self.one('#keys').is_displayed())
        self.press(Keys.ESCAPE)
        self.assertFalse(self.one('#keys').is_displayed())
        self.press(Keys.ESCAPE)
        self.await_true(lambda: self.focused() == second, 'Escape goes back to the row')
        self.press('/', 'fish')
        self.assertEqual([row.text for row in self.all('.cols tbody a') if row.is_displayed()], ['Fish, on ice'])
        self.press(Keys.ESCAPE, 'a')
        self.await_true(lambda: self.focused() == 'Staff tag 7', 'a goes to what needs attention')

    def test_fits_every_width(self):
        for view in ('', '#b=' + self.ids['Poultry fridge'] + '&r=week'):
            for width in (320, 390, 800, 1280, 1920):
                self.resize(width, 900)
                self.open(view)
                self.assertLessEqual(self.script('return document.documentElement.scrollWidth'), width, view)

    def test_dark(self):
        self.browser.execute_cdp_cmd('Emulation.setEmulatedMedia', {
            'features': [{'name': 'prefers-color-scheme', 'value': 'dark'}]})
        self.open()
        self.assertEqual(self.script('return getComputedStyle(document.body).backgroundColor'), 'rgb(15, 18, 21)')

    def test_reads_without_scripts(self):
        self.browser.execute_cdp_cmd('Emulation.setScriptExecutionDisabled', {'value': True})
        try:
            self.open()
            self.assertEqual(len(self.all('.cols tbody tr')), 15)
            self.assertFalse(self.one('#find').is_displayed())
            self.assertFalse(self.one('#detail').is_displayed())
            self.assertTrue(self.one('#events tbody tr').is_displayed())
            self.assertIn('19.3', self.one('#day-' + self.ids['Poultry fridge']).text)
        finally:
            self.browser.execute_cdp_cmd('Emulation.setScriptExecutionDisabled', {'value': False})

    def test_paper_is_not_blank(self):
        self.open_beacon('Poultry fridge')
        pdf = self.browser.execute_cdp_cmd('Page.printToPDF', {'printBackground': False})['data']
        self.assertGreater(len(pdf), 40_000)

    def test_live(self):
        """One history, heard while it is looked at; the server is stopped and started again."""
        with Live(self.folder.name) as live:
            self.url = live.url
            self.addCleanup(setattr, self, 'url', type(self).url)
            self.open()
            fish = f'.cols tr[data-b="{self.ids["Fish, on ice"]}"]'
            figure = lambda: self.text(fish + ' td:nth-child(3)')
            self.await_true(lambda: self.text('#live') == 'Live' and self.all(fish), 'the page is live')
            self.assertEqual(self.all('img'), [])
            self.assertIn(HOSTILE, [row.text for row in self.all('.cols tbody bdi')])
            told = time.time()
            live.hear('Fish, on ice', 17.15)
            self.await_true(lambda: figure() == '17.2', 'a value is shown, rounded as the server does')
            self.assertLess(time.time() - told, 1)
            self.script('window.mine = document.querySelector(arguments[0])', fish)

            live.hear('Staff tag 7', 8, emergency=1)
            self.await_true(lambda: 'Staff tag 7' in self.text('#att'), 'an emergency needs attention')
            self.assertTrue(self.browser.title.startswith('2 need attention'))
            self.assertIn('Staff tag 7', self.one('#cry').get_attribute('textContent'))
            self.assertTrue(self.script('return window.mine.isConnected'), 'rows stay')

            type(self).is_cut = True
            live.stop()
            self.await_true(lambda: 'No connection since' in self.text('#stale'), 'who is cut off is told')
            live.start()
            self.await_true(lambda: self.text('#live') == 'Live' and not self.one('#stale').is_displayed(), 'it comes back')
            live.hear('Fish, on ice', 1.5)
            self.await_true(lambda: figure() == '1.5', 'and is live again')

            self.script('arguments[0].click()', self.one(fish + ' a'))
            self.await_true(lambda: self.readings().get('Temperature') == 'lowest 1.5, highest 17.2', 'the chart is asked for')
            live.hear('Fish, on ice', 2)
            self.await_true(lambda: self.text('#dl dd').startswith('2.0'), 'the detail view is live')
            self.browser.get_log('browser')
            type(self).is_cut = False

            live.beacons['Server cupboard'].battery = 8
            cupboard = self.ids['Server cupboard']
            self.open()
            live.hear('Server cupboard', 20)
            self.await_true(lambda: self.text(f'.cols tr[data-b="{cupboard}"] td.bad') == '8' and
                            self.text(f'#att li[data-k^="{cupboard}"] .fig') == '8 %', 'one value in both places')
            live.radio.kill()
            self.await_true(lambda: 'no process writes the history' in self.text('#att'), 'the end of the writer is told')
            self.assertNotIn('now', [cell.text for cell in self.all('.cols td.ag')])

    def test_fifty_beacons_of_a_week_are_small(self):
        with tempfile.TemporaryDirectory(prefix='brenloft-page-') as folder:
            page, _ = make_week(folder, 50)
            self.assertLess(os.path.getsize(page), 2_000_000)


if __name__ == '__main__':
    if webdriver is None or not (os.path.exists(CHROMIUM) and os.path.exists(DRIVER)):
        print('skipped: chromium, chromium-driver or python3-selenium is not installed')
        sys.exit(77)
    unittest.main(argv=sys.argv[:1] + sys.argv[2:], verbosity=2)
