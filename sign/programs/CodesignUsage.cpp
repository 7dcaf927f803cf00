#include "sign/programs/CodesignOptions.h"

namespace sign {

const char* const codesignUsage = R"(usage: kelpmoray-codesign OPERATION [OPTION]... PATH...
Signs code for Apple's platforms and checks and shows signatures. PATH is a Mach-O file or a bundle.

Operations:
  -s, --sign IDENTITY     sign with the identity of this hash or part of a name; - signs ad hoc
  -v, --verify            check the signature; -v without another operation is the same
  -d, --display           show the signature; each -v shows more, up to -dvvvv
      --remove-signature  take the signature away
      --plan              print the code objects of a package in the order in which they are to be
                          signed, each with a zero byte behind it

To sign:
  -f, --force             replace a signature that is there
      --deep              sign all code in a package from inside out; with --verify, check it too
  -i, --identifier ID     in place of the one that the code gives
      --prefix PREFIX     put before an identifier that has no dot
  -o, --options FLAGS     a list such as runtime,library, or a number
      --runtime-version V in place of the SDK's, such as 13.3.0
      --entitlements FILE an XML property list; not for nested code
      --helper-entitlements FILE  the same for nested applications, with --deep
  -r, --requirements REQ  a file, or =TEXT, such as "=designated => identifier com.example.a";
                          not for nested code
      --timestamp[=URL]   ask Apple's time stamp server, or this one; =none asks none
      --preserve-metadata[=LIST]  keep from the old signature: identifier, entitlements,
                          requirements, flags, runtime
      --pagesize SIZE     of the hashes: 4096 or 16384
      --bundle-version V  the version of a framework, in place of the current one

To verify:
      --strict            also check what only the platform's strict mode looks at
  -R, --test-requirement REQ  also check that the code meets this requirement: a file, or =TEXT

To display:
  -r -                    print the requirements on standard output
      --entitlements :-   print the entitlements on standard output

      --json              to verify, to display and with --plan: print one JSON object a line on
                          standard output for each PATH, and nothing else
      --verbose[=N]       like N times -v
  -h, --help, --version   show this text, or the version

Exit status: 0 done, 1 failed, 2 wrong usage, 3 only the requirement of -R is not met.
)";

} // namespace sign
