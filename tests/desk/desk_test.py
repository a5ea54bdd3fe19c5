#!/usr/bin/python3
"""The desk in a real browser, and what it refuses.  desk_test.py ADDRESS: a running desk's, like 127.0.0.1:8080."""
import base64
import http.client
import socket
import subprocess
import sys
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

ADDRESS = sys.argv.pop(1)
PORT = ADDRESS.split(':')[1]
LIMIT = 60  # seconds; only a fault takes as long
FLAGS = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--window-size=1500,1100',
         '--disable-background-networking', '--disable-component-update', '--disable-sync']


def status(path, body=b'', method='POST', **headers):
    """Of the answer to a request with these headers."""
    connection = http.client.HTTPConnection(ADDRESS, timeout=LIMIT)
    try:
        connection.request(method, path, body, {'Content-Type': 'application/x-www-form-urlencoded', **headers})
        return connection.getresponse().status
    finally:
        connection.close()


def jpeg(color, width, height):
    pixels = b'P6 %d %d 255\n' % (width, height) + bytes(color) * width * height
    return subprocess.run(['cjpeg'], input=pixels, stdout=subprocess.PIPE, check=True).stdout


class Refusals(unittest.TestCase):
    def test_what_comes_from_elsewhere(self):
        for headers in ({'Origin': 'http://example.org'}, {'Origin': 'null'}, {'Origin': f'https://{ADDRESS}'},
                        {'Origin': 'http://127.0.0.1:1'}, {'Host': 'example.org'}, {'Host': f'example.org:{PORT}'},
                        {'Host': '127.0.0.1'}, {'Host': f'localhost:{PORT}', 'Origin': f'http://{ADDRESS}'}):
            with self.subTest(headers):
                self.assertEqual(status('/keep', b'on=0', **headers), 403)
                self.assertEqual(status('/', method='GET', **headers), 403)
        for host in (ADDRESS, f'localhost:{PORT}'):
            self.assertEqual(status('/keep', b'on=0', Host=host, Origin=f'http://{host}'), 200)

    def test_what_a_refused_request_carries(self):
        inner = f'POST /keep HTTP/1.1\r\nHost: {ADDRESS}\r\nContent-Length: 0\r\n\r\n'
        for size in (f'Content-Length: {len(inner)}', 'Transfer-Encoding: chunked', 'Accept: */*'):
            with self.subTest(size), socket.create_connection(ADDRESS.split(':'), LIMIT) as connection:
                head = f'POST /keep HTTP/1.1\r\nHost: {ADDRESS}\r\nOrigin: http://example.org\r\n{size}\r\n\r\n'
                connection.sendall(head.encode())
                answers = connection.recv(4096)
                try:
                    connection.sendall(inner.encode())
                    while piece := connection.recv(4096):
                        answers += piece
                except (ConnectionResetError, BrokenPipeError):
                    pass # what comes after the refusal is thrown away
                self.assertEqual((answers.count(b'HTTP/1.1 '), answers.count(b' 403 ')), (1, 1), answers)

    def test_what_is_wrong(self):
        for path, body, answer in (
                ('/board/picture?begin=1', b'GIF89a', 415), ('/board/picture?begin=1', b'\xff\xd8\xff so to say', 415),
                ('/board/picture?begin=1', jpeg((9, 9, 9), 1, 1) + bytes(16 << 20), 413),
                ('/board/picture?begin=1', jpeg((9, 9, 9), 8193, 1), 413), ('/rotate', b'mode=4', 400),
                ('/board/event', b'channel=md&code=12%0Apicture', 400), ('/board/event', b'channel=log&code=1', 400),
                ('/board/log', b'level=5&text=a%0Ahang+kt_md_stop', 400), ('/signal', b'name=SIGSTOP', 400),
                ('/board/fail', b'function=kt_init%0Ahang&times=1', 400), ('/start', b'rotation=7', 400),
                ('/../desk.js', b'', 404)):
            with self.subTest(path=path, body=body[:40]):
                self.assertEqual(status(path, body), answer)


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        options = webdriver.ChromeOptions()
        options.binary_location = '/usr/bin/chromium'
        for flag in FLAGS + [f'--user-data-dir={folder.name}']:
            options.add_argument(flag)
        options.set_capability('goog:loggingPrefs', {'browser': 'ALL'})
        cls.browser = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        """A session of its own, which nothing keeps."""
        status('/keep', b'on=0')
        self.browser.get(f'http://{ADDRESS}/')
        self.wait(lambda: self.phase() in ('none', 'ready', 'ended'))
        if self.phase() == 'ready':
            self.press('#end-button')
        self.wait(lambda: self.phase() in ('none', 'ended'))
        self.start('#start-button')

    def tearDown(self):
        self.assertEqual([entry for entry in self.browser.get_log('browser') if entry['level'] == 'SEVERE'], [])

    def start(self, button):
        self.press(button)
        self.wait(lambda: self.phase() == 'ready' and self.find('#state').text == 'STATE_ENCODING')

    def wait(self, condition):
        WebDriverWait(self.browser, LIMIT, 0.1).until(lambda _: condition(), self.find('#pill').text)

    def wait_for_note(self, text):
        """Beside the button that was pressed last."""
        note = 'return document.querySelector(".note").textContent'
        self.wait(lambda: text in self.browser.execute_script(note))

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def phase(self):
        return self.find('#pill').get_attribute('data-phase')

    def press(self, selector):
        self.browser.execute_script('arguments[0].scrollIntoView({block: "center"})', self.find(selector))
        self.find(selector).click()

    def lines(self):
        """Of the log, as far as they are shown."""
        return self.browser.execute_script(
            'return [...document.querySelectorAll("#lines li:not([hidden])")].map(line => line.textContent)')

    def picture(self):
        """The live view in the browser: its width, its height, the colour of its middle."""
        return self.browser.execute_script('''
            const image = document.getElementById('live'), pen = document.createElement('canvas').getContext('2d');
            const [width, height] = [image.naturalWidth, image.naturalHeight];
            pen.drawImage(image, -width / 2, -height / 2);
            return [width, height, [...pen.getImageData(0, 0, 1, 1).data].slice(0, 3)];''')

    def snapshot(self, is_right=lambda width, height, color: width):
        before = self.find('#live').get_attribute('src')
        self.press('#snapshot-button')
        self.wait_for_note('picture taken')
        self.wait(lambda: self.find('#live').get_attribute('src') != before and is_right(*self.picture()))

    def test_snapshot_and_rotation(self):
        self.snapshot(lambda width, height, _: (width, height) == (960, 540))
        self.press('[data-mode="1"]')
        self.wait_for_note('turned by 90°')
        self.assertEqual(self.find('#rotation').text, '90°')
        self.snapshot(lambda width, height, _: height > width)

    def test_pulled_cable_and_another_start(self):
        self.press('[data-code="12"]')
        self.wait(lambda: self.phase() == 'ended')
        self.assertIn('EVT_MEDIA_HDMI_UNCONNECTED', self.find('#cause').text)
        self.wait_for_note('the session ended')
        self.start('#again')

    def test_fault_beside_its_button(self):
        self.press('#fail-button')
        self.wait_for_note('sent')
        self.press('#snapshot-button')
        self.wait_for_note('kt_md_capture failed')
        self.wait(lambda: self.find('#failure').is_displayed())
        self.assertIn("JPEG under a GIF's name", self.find('#live-facts').text)
        self.snapshot()
        self.wait(lambda: not self.find('#failure').is_displayed())

    def test_dropped_picture(self):
        self.browser.execute_script('''
            const bytes = Uint8Array.from(atob(arguments[0]), letter => letter.charCodeAt(0));
            const dataTransfer = new DataTransfer();
            dataTransfer.items.add(new File([bytes], 'mine.jpg', {type: 'image/jpeg'}));
            document.body.dispatchEvent(new DragEvent('drop', {dataTransfer, bubbles: true, cancelable: true}));
            ''', base64.b64encode(jpeg((200, 30, 30), 640, 480)).decode())
        self.wait_for_note('mine.jpg is what the encoder sees')
        self.snapshot(lambda width, height, color: width * 3 == height * 4 and color[0] > 150 and color[1] < 80)
        self.press('#card-button')

    def test_reload_while_the_session_is_kept(self):
        self.press('#keep')
        self.wait(lambda: self.find('#live').get_attribute('src'))
        self.browser.refresh()
        self.wait(lambda: self.phase() == 'ready' and self.find('#keep').is_selected())
        self.assertIn('Initialize succeed', self.find('#lines').text)
        before = self.find('#live').get_attribute('src')
        self.wait(lambda: self.find('#live').get_attribute('src') != before)
        self.press('#keep')

    def test_log_paused_and_filtered(self):
        self.find('#filter').send_keys('success')
        self.press('#pause')
        lines = self.lines()
        self.assertTrue(lines and all('success' in line for line in lines), lines)
        self.snapshot()
        self.assertEqual(self.lines(), lines)
        self.press('#pause')
        self.assertIn('kt_md_capture success', self.lines()[-1])


if __name__ == '__main__':
    unittest.main()
