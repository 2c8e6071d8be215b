// The last stop of an exception that nothing caught.

#include "apps/zelka/host/unhandled_exception.h"

#include <wx/log.h>

#include <typeinfo>
#include <utility>

#include "apps/zelka/zelka.h"
#include "zelka_core/text.h"
#include "zelka_core/trace.h"

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
        return wxString::Format("std::exception of type \"%s\", what() = \"%s\"",
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

// An exception cannot pass through the code that calls event handlers. It is kept until the main
// loop has ended and goes on from there, out of OnRun. That has to wait for the application's
// thread, so the log says at once why the agent ends.
bool CAgentApp::StoreCurrentException() {
    if (m_storedException == nullptr) {
        m_storedException = std::current_exception();
    }
    wxLogError("Unhandled %s in an event handler; the agent ends with its application",
               DescribeCurrentException());
    return true;
}

void CAgentApp::RethrowStoredException() {
    if (m_storedException != nullptr) {
        std::rethrow_exception(std::exchange(m_storedException, nullptr));
    }
}
