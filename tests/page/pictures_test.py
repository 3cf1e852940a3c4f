"""Pictures of each view on the recorded sessions, at both widths and in both themes: docs/images, which the README shows. They
are compared loosely: fonts differ between machines, and ages grow. TABULO_PICTURES=write makes them anew."""

import io
import os
import unittest

from PIL import Image, ImageChops, ImageStat

from shown import DAY, LARGE, PageTest, SMALL

IMAGES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "images")
# Each view with something in it, and what must be there first.
VIEWS = {
    "overview": ("#/overview", ".tables tbody tr"),
    "messages": (f"#/messages?table={DAY}", ".message .seq"),
    "timeline": (f"#/timeline?table={DAY}&by=type", ".legend li"),
    "order": ("#/order?id=C1A-10964", ".diagram .arrow"),
    "blocks": (f"#/blocks?table={DAY}&block=3", ".map-parts dd"),
    "sql": ("#/sql?q=SELECT%20type%2C%20count(*)%20AS%20messages%20FROM%20messages%20GROUP%20BY%20type%20ORDER%20BY%202%20DESC", "#statement"),
}
# Pictures are compared when they are so much smaller, so that letters are grey stretches; how much brightness may differ, of 255.
SCALE = 16
MOST = 12


class PicturesTest(PageTest):
    def picture(self, name, address, ready):
        browser = self.browser
        browser.show(address, ready)
        if name == "sql":
            browser.all(".view.sql button.main")[0].click()
            browser.wait(".view.sql tbody tr")
        if name == "messages":
            self.settled()
        return Image.open(io.BytesIO(browser.driver.get_screenshot_as_png())).convert("RGB")

    def assert_alike(self, name, found):
        path = os.path.join(IMAGES, name)
        if os.environ.get("TABULO_PICTURES") == "write":
            os.makedirs(IMAGES, exist_ok=True)
            found.quantize(128).save(path, optimize=True)
            return
        expected = Image.open(path).convert("RGB")
        self.assertEqual(found.size, expected.size, name)
        small = (found.width // SCALE, found.height // SCALE)
        difference = ImageStat.Stat(ImageChops.difference(found.resize(small), expected.resize(small)).convert("L")).mean[0]
        if difference > MOST:
            found.save(self.path(name))
            self.fail(f"{name} looks different: brightness differs by {difference:.1f} of 255 on average; see {self.path(name)}")

    def test_each_view_looks_as_in_the_documents(self):
        browser = self.served(DAY, "client-day2")
        for theme in ("light", "dark"):
            browser.theme(theme)
            for size in (LARGE, SMALL):
                browser.resize(size)
                for name, (address, ready) in VIEWS.items():
                    with self.subTest(view=name, theme=theme, width=size[0]):
                        self.assert_alike(f"{name}-{theme}-{size[0]}.png", self.picture(name, address, ready))
        self.no_errors()


if __name__ == "__main__":
    unittest.main()
