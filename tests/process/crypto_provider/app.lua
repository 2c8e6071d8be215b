-- What OpenSSL works with, as a C module sees it from inside the process.
package.cpath = os.getenv("MODULES") .. "/?.so"
local probe = require "crypto_probe"
return { main = function() print(probe.state()) end }
