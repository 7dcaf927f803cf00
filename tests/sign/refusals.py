#!/usr/bin/env python3
"""What the signer refuses or warns of before it changes anything."""
import os
import unittest

import fixtures
from codesign import CodeTest, tree
from programs import write


class Refusals(CodeTest):
    def assert_refused(self, words, *arguments, **environment):
        """In one line, with nothing changed."""
        before = tree(self.folder)
        status, said = self.codesign(*arguments, **environment)
        self.assertEqual((status, said.count("\n")), (1, 1), said)
        self.assertIn(words, said)
        self.assertEqual(tree(self.folder), before)

    def application(self, name="X.app", code="exe-arm64"):
        fixtures.make_bundle(self.path(name), "main", self.linker.link(code))
        return self.path(name)

    def test_no_link_leads_a_removal_out_of_the_package(self):
        real = self.application("Real.app")
        self.sign(real)
        for number, (name, words) in enumerate([("/Contents", "unsealed contents"), ("/Contents/_CodeSignature", "unsealed contents"),
                                                ("/Contents/MacOS/main", "must be a regular file")]):
            app = self.application(f"{number}.app")
            self.sign(app)
            os.rename(app + name, self.path(f"{number}"))
            os.symlink(os.path.relpath(real + name, os.path.dirname(app + name)), app + name)
            self.assert_refused(words, "--remove-signature", app)
        self.assert_refused("it is no Mach-O file", "--remove-signature", write(self.path("text"), "text"))
        write(real + "/Contents/_CodeSignature/CodePrecious", "precious")
        self.assert_quiet("--remove-signature", real)
        self.assert_names(real + "/Contents/_CodeSignature", "CodePrecious")


if __name__ == "__main__":
    unittest.main()
