"""Every rule of CheckLayers.py, shown to fail on a made-up tree that is otherwise in order."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "Support"))
import MadeUpTree

import CheckLayers

table = """
group std
    string vector   # and so on
group sockets
    sys/socket.h netinet/*
group gtest
    gtest/*
folder Platform/libLow
    std sockets
folder Rpc/libProtocolX/schema
folder Rpc/libMiddle
    std Platform/libLow Rpc/libProtocolX/schema
folder Rpc/libMiddle/inner
    std
folder Apps/Server
    std
file Apps/Server/Main.cpp
    Rpc/libMiddle/Middle.h
folder Tests/Support
    std
folder Tests/Unit
    gtest Tests/Support
"""


class CheckLayersTest(MadeUpTree.MadeUpTree):
    def setUp(self):
        super().setUp()
        self.put("Tools/Layers.txt", table)
        self.put("Tools/PublicHeaders.txt", "# installed\nPlatform/libLow/Low.h\n")
        self.put("Platform/libLow/Low.h", "#pragma once\n#include <string>\n")
        self.put("Platform/libLow/Hidden.h", "#pragma once\n")
        self.put("Platform/libLow/Low.cpp", '#include "Low.h"\n#include "Hidden.h"\n#include <sys/socket.h>\n')
        self.put("Rpc/libMiddle/Middle.h", "#include <libLow/Low.h>\n#include <CommonMessages.pb.h>\n")
        self.put("Rpc/libMiddle/inner/Deep.cpp", '#include "inner/Deep.h"\n')
        self.put("Rpc/libMiddle/inner/Deep.h", "")
        self.put("Apps/Server/Main.cpp", "#include <libMiddle/Middle.h>\n")
        self.put("Tests/Support/Helper.h", "")
        self.put(
            "Tests/Unit/Rpc/libMiddle/MiddleTest.cpp",
            '#include "Support/Helper.h"\n#include <gtest/gtest.h>\n#include <libMiddle/Middle.h>\n'
            "#include <libLow/Low.h>\n",
        )

    def errors(self):
        return CheckLayers.Checker(self.tree).run()

    def testATreeInOrderHasNoError(self):
        self.assertEqual(self.errors(), [])

    def testALowerLayerMayNotIncludeAHigherOne(self):
        self.put("Platform/libLow/Hidden.h", "\n#include <libMiddle/Middle.h>\n")
        self.assertOneError(
            self.errors(), "Platform/libLow/Hidden.h:2:", "Platform/libLow may not include Rpc/libMiddle/Middle.h"
        )

    def testASubfolderHasOnlyItsOwnRights(self):
        self.put("Rpc/libMiddle/inner/Deep.h", "#include <libLow/Low.h>\n")
        self.assertOneError(self.errors(), "Rpc/libMiddle/inner may not include Platform/libLow/Low.h")

    def testAHeaderOfAFolderDoesNotCoverItsSubfolders(self):
        self.put("Rpc/libMiddle/Middle.h", '#include "inner/Deep.h"\n')
        self.assertOneError(self.errors(), "Rpc/libMiddle may not include Rpc/libMiddle/inner/Deep.h")

    def testARightOfOneFileIsNotThatOfItsFolder(self):
        self.put("Apps/Server/Other.cpp", "#include <libMiddle/Middle.h>\n")
        self.assertOneError(self.errors(), "Apps/Server/Other.cpp:1:", "may not include Rpc/libMiddle/Middle.h")

    def testAForeignHeaderMustBeInAGroupOfTheLayer(self):
        self.put("Rpc/libMiddle/Middle.h", "#include <netinet/in.h>\n")
        self.assertOneError(self.errors(), "Rpc/libMiddle may not include <netinet/in.h>")

    def testAStandardHeaderThatNobodyListedIsForbidden(self):
        self.put("Rpc/libMiddle/Middle.h", "#include <format>\n")
        self.assertOneError(self.errors(), "may not include <format>")

    def testTheGeneratedHeadersBelongToTheSchema(self):
        self.put("Rpc/libMiddle/inner/Deep.h", "#include <CommonMessages.pb.h>\n")
        self.assertOneError(self.errors(), "may not include Rpc/libProtocolX/schema/CommonMessages.pb.h")

    def testATestMayNotIncludeWhatTheTestedFolderMayNot(self):
        self.put("Tests/Unit/Platform/libLow/LowTest.cpp", "#include <libMiddle/Middle.h>\n")
        self.assertOneError(
            self.errors(), "Tests/Unit/Platform/libLow may not include Rpc/libMiddle/Middle.h"
        )

    def testAnUnknownFolderIsAnError(self):
        self.put("Rpc/libOther/Other.h", "")
        self.assertOneError(self.errors(), "Rpc/libOther/Other.h: Tools/Layers.txt says nothing of this folder")

    def testATestOfAnUnknownFolderIsAnError(self):
        self.put("Tests/Unit/Rpc/libOther/OtherTest.cpp", "")
        self.assertOneError(self.errors(), "Tests/Unit/Rpc/libOther/OtherTest.cpp", "says nothing of this folder")

    def testTwoDotsAreAnErrorInBothForms(self):
        self.put("Platform/libLow/Hidden.h", '#include "../libLow/Low.h"\n#include <libLow/../Low.h>\n')
        errors = self.errors()
        self.assertEqual(len(errors), 2, errors)
        self.assertTrue(all('".." in an include' in error for error in errors), errors)

    def testQuotesDoNotReachAcrossLibraries(self):
        self.put("Rpc/libMiddle/Middle.h", '#include "libLow/Low.h"\n')
        self.assertOneError(self.errors(), "another library is included in the angle form")

    def testQuotesDoNotReachTheGeneratedHeaders(self):
        self.put("Rpc/libMiddle/Middle.h", '#include "CommonMessages.pb.h"\n')
        self.assertOneError(self.errors(), "another library is included in the angle form")

    def testQuotesStartFromTheRootOfTheLibrary(self):
        self.put("Rpc/libMiddle/inner/Deep.cpp", '#include "Deep.h"\n')
        self.assertOneError(self.errors(), 'there is no Rpc/libMiddle/Deep.h for "Deep.h"')

    def testTheAngleFormIsForOtherLibraries(self):
        self.put("Platform/libLow/Low.cpp", "#include <libLow/Low.h>\n")
        self.assertOneError(self.errors(), "inside a library the quoted form is used, not <libLow/Low.h>")

    def testAPrivateHeaderMayUseEitherForm(self):
        self.put("Platform/libLow/Hidden.h", '#include "Low.h"\n#include <libLow/Low.h>\n')
        self.assertEqual(self.errors(), [])

    def testAnInstalledHeaderUsesNoQuotes(self):
        self.put("Platform/libLow/Low.h", '#include "Hidden.h"\n')
        self.assertOneError(self.errors(), "an installed header includes in the angle form")

    def testAnInstalledHeaderNeedsNoPrivateOne(self):
        self.put("Platform/libLow/Low.h", "#include <libLow/Hidden.h>\n")
        self.assertOneError(self.errors(), "Platform/libLow/Hidden.h, which is not installed")

    def testAPrivateHeaderStaysInItsLibrary(self):
        self.put("Rpc/libMiddle/Middle.h", "#include <libLow/Hidden.h>\n")
        self.assertOneError(self.errors(), "Platform/libLow/Hidden.h is not installed and so private to its library")

    def testATestMayReachAPrivateHeader(self):
        self.put("Tests/Unit/Platform/libLow/LowTest.cpp", "#include <libLow/Hidden.h>\n")
        self.assertEqual(self.errors(), [])

    def testATestMayNameAHeaderBesideItAlone(self):
        self.put("Tests/Unit/Platform/libLow/Probe.h", "")
        self.put("Tests/Unit/Platform/libLow/LowTest.cpp", '#include "Probe.h"\n')
        self.assertEqual(self.errors(), [])

    def testATestNamesAHeaderElsewhereByItsWholePath(self):
        self.put("Tests/Unit/Platform/libLow/LowTest.cpp", '#include "Helper.h"\n')
        self.assertOneError(self.errors(), 'there is no Tests/Unit/Platform/libLow/Helper.h for "Helper.h"')

    def testAHeaderThatDoesNotExistIsAnError(self):
        self.put("Rpc/libMiddle/Middle.h", "#include <libLow/Gone.h>\n")
        self.assertOneError(self.errors(), "<libLow/Gone.h> does not exist")

    def testAnIncludeByMacroIsAnError(self):
        self.put("Rpc/libMiddle/Middle.h", "#include SOMETHING\n")
        self.assertOneError(self.errors(), "an include without a name of its own")

    def testAnIndentedIncludeIsSeen(self):
        self.put("Rpc/libMiddle/Middle.h", "#if 1\n  #  include <format>\n#endif\n")
        self.assertOneError(self.errors(), "Rpc/libMiddle/Middle.h:2:", "may not include <format>")

    def testAListedInstalledHeaderMustExist(self):
        self.put("Tools/PublicHeaders.txt", "Platform/libLow/Low.h\nPlatform/libLow/Gone.h\n")
        self.assertOneError(self.errors(), "Platform/libLow/Gone.h does not exist")

    def testATableWithAnUnknownNameIsAnError(self):
        self.put("Tools/Layers.txt", table + "folder Rpc/libNew\n    Platform/libGone\n")
        with self.assertRaisesRegex(CheckLayers.TableError, "Rpc/libNew allows Platform/libGone"):
            self.errors()

    def testATableWithTheSameFolderTwiceIsAnError(self):
        self.put("Tools/Layers.txt", table + "folder Apps/Server\n    std\n")
        with self.assertRaisesRegex(CheckLayers.TableError, "not a new group, folder or file"):
            self.errors()


if __name__ == "__main__":
    unittest.main()
