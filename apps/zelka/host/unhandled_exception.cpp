// The last stop of an exception that nothing caught.

#include "apps/zelka/host/unhandled_exception.h"

#include <wx/log.h>

#include <typeinfo>
#include <utility>

#include "apps/zelka/zelka.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/text.h"

using ZelkaCore::FromUtf8;

namespace {

wxString Text(const char* text) {
    return text != nullptr ? FromUtf8(text) : wxString("(null)");
}

}  // namespace

wxString DescribeCurrentException() {
    try {
        throw;
    } catch (const std::exception& e) {
        return wxString::Format(R"(std::exception of type "%s", what() = "%s")",
                                Text(typeid(e).name()), Text(e.what()));
    } catch (char* text) {
        return wxString::Format("char * exception '%s'", Text(text));
    } catch (wchar_t* text) {
        return wxString::Format("wchar_t * exception '%s'", text != nullptr ? text : L"(null)");
    } catch (int value) {
        return wxString::Format("int exception %d", value);
    } catch (unsigned int value) {
        return wxString::Format("unsigned int exception %u", value);
    } catch (long value) {
        return wxString::Format("long exception %ld", value);
    } catch (unsigned long value) {
        return wxString::Format("unsigned long exception %lu", value);
    } catch (long long value) {
        return wxString::Format("long long exception %lld", value);
    } catch (unsigned long long value) {
        return wxString::Format("unsigned long long exception %llu", value);
    } catch (...) {
        return "<unknown exception>";
    }
}

void CAgentApp::OnUnhandledException() {
    static constexpr const char* kFunction = "CAgentApp::OnUnhandledException";
    ZELKA_TRACE("Appl", kFunction, "OnUnhandledException()");
    const wxString what = DescribeCurrentException();
    ZELKA_TRACE("Appl", kFunction, "OnUnhandledException() - caught unhandled %s, terminating app.",
                what);
}

// The way out of the main loop leads past the application's thread, which has to end first: so the
// log says at once why the agent is about to end. A stored exception comes here twice.
bool CAgentApp::OnExceptionInMainLoop() {
    if (!std::exchange(m_bExceptionReported, true)) {
        wxLogError("Unhandled %s in the main loop; the agent ends with its application",
                   DescribeCurrentException());
    }
    throw;
}

// Most event handlers are called by code that an exception cannot pass through. It is kept until
// the main loop has ended, and goes on from there.
bool CAgentApp::StoreCurrentException() {
    m_storedException = std::current_exception();
    return true;
}

void CAgentApp::RethrowStoredException() {
    if (m_storedException != nullptr) {
        std::rethrow_exception(std::exchange(m_storedException, nullptr));
    }
}
