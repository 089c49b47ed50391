#include "script/Rule.h"

#include <fmt/format.h>
#include <pybind11/embed.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "base/InputError.h"
#include "base/Text.h"
#include "script/RuleCall.h"

namespace py = pybind11;

namespace zebcam::tool::script {

namespace {

/// The one interpreter, from the first rule on until the program exits: packages of compiled code
/// do not bear a second one. The thread that makes it is the one that ends it.
class Interpreter {
public:
    static void start() { static Interpreter const interpreter; }

private:
    // Signals stay the tool's, and nothing is left beside the user's files.
    static PyConfig* configure(PyConfig& config) {
        PyConfig_InitPythonConfig(&config);
        // Beside it lies the library of modules. Another in the PATH may be of another version.
        PyConfig_SetBytesString(&config, &config.program_name, PYTHON_PROGRAM);
        config.install_signal_handlers = 0;
        config.write_bytecode = 0;
        config.parse_argv = 0;
        return &config;
    }

    Interpreter() : mInterpreter(configure(mConfig), 0, nullptr, false) {
        // Standard output is for results.
        auto const sys = py::module_::import("sys");
        sys.attr("stdout") = sys.attr("stderr");
        py::module_::import("zsl");  // captures and frames are known whether or not a rule asks
        mFree = std::make_unique<py::gil_scoped_release>();
    }

    PyConfig mConfig{};
    py::scoped_interpreter mInterpreter;
    std::unique_ptr<py::gil_scoped_release> mFree;  ///< nobody holds the lock between questions
};

/// What Python says of an exception: `ZeroDivisionError: division by zero`.
std::string messageOf(py::error_already_set const& error) {
    std::string const type = py::str(error.type().attr("__name__"));
    // A syntax error's own text has the file and the line once more.
    py::object const text =
        py::hasattr(error.value(), "msg") ? error.value().attr("msg") : py::object(error.value());
    std::string const message = base::printable(py::str(text).cast<std::string>());
    return message.empty() ? type : type + ": " + message;
}

/// None for what the interpreter itself could not do.
py::object traceOf(py::error_already_set const& error) {
    return error.trace() ? error.trace() : py::none();
}

/// `rule.py:12`: where in the file it happened, as far in as it goes.
std::string placeOf(py::error_already_set const& error, std::string const& path) {
    int line = 0;
    if (error.matches(PyExc_SyntaxError) && !error.value().attr("lineno").is_none()) {
        line = error.value().attr("lineno").cast<int>();
    }
    for (py::object at = traceOf(error); !at.is_none(); at = at.attr("tb_next")) {
        if (at.attr("tb_frame").attr("f_code").attr("co_filename").cast<std::string>() == path) {
            line = at.attr("tb_lineno").cast<int>();
        }
    }
    return line > 0 ? fmt::format("{}:{}", path, line) : path;
}

std::string policyName(std::string const& path) {
    std::string name = std::filesystem::path(path).stem();
    // It stands between brackets in log lines.
    std::replace_if(
        name.begin(), name.end(),
        [](unsigned char c) { return std::isalnum(c) == 0 && c != '_' && c != '-' && c != '.'; },
        '_');
    return name;
}

/// Where a function begins; 0 for another object that can be called.
int lineOf(py::handle function) {
    return py::hasattr(function, "__code__")
               ? function.attr("__code__").attr("co_firstlineno").cast<int>()
               : 0;
}

class RuleSelector final : public ISelector {
public:
    /// `choose` is the function.
    RuleSelector(std::string path, py::object choose, RuleSettings settings)
        : mPath(std::move(path)),
          mName(policyName(mPath)),
          mSettings(std::move(settings)),
          mChoose(std::move(choose)) {}
    ~RuleSelector() override {
        // By Python's own functions, which throw nothing.
        PyGILState_STATE const gil = PyGILState_Ensure();
        Py_DECREF(mChoose.release().ptr());
        PyGILState_Release(gil);
    }
    RuleSelector(RuleSelector const&) = delete;
    RuleSelector& operator=(RuleSelector const&) = delete;

    char const* getName() const override { return mName.c_str(); }

    SelectOutputParams select(SelectInputParams const& in) const override {
        py::gil_scoped_acquire const gil;
        auto const call = std::make_shared<RuleCall>(*this, in, mSettings);
        struct Ending {
            RuleCall& call;
            ~Ending() { call.end(); }
        } const ending{*call};
        try {
            py::object const returned = mChoose(call, call->frames());
            return answer(*call, returned);
        } catch (py::error_already_set const& error) {
            // Python's own exception must not outlive the interpreter's lock.
            throw std::runtime_error(tell(error, *call));
        }
    }

private:
    SelectOutputParams answer(RuleCall& call, py::object const& returned) const {
        try {
            return call.answer(returned);
        } catch (std::runtime_error const& error) {
            throw std::runtime_error(fmt::format("{}:{}: choose(): {} ({})", mPath, lineOf(mChoose),
                                                 error.what(), call.place()));
        }
    }

    /// One line; the first time that something goes wrong there, with Python's on standard error.
    std::string tell(py::error_already_set const& error, RuleCall const& call) const {
        std::string const place = placeOf(error, mPath);
        std::string text = fmt::format("{}: {} ({})", place, messageOf(error), call.place());
        std::string const type = py::str(error.type().attr("__name__"));
        if (mTold.insert(place + type).second) {
            auto const traceback = py::module_::import("traceback").attr("format_exception");
            auto const lines = traceback(error.type(), error.value(), traceOf(error));
            py::print(fmt::format("{} failed for {}:", mPath, call.place()));
            py::print(py::str("").attr("join")(lines), py::arg("end") = "");
        }
        return text;
    }

    std::string const mPath;
    std::string const mName;
    RuleSettings const mSettings;
    py::object mChoose;
    mutable std::set<std::string> mTold;  ///< under the interpreter's lock
};

/// Runs the file as a module and gives its function.
py::object runFile(std::string const& path) {
    auto const builtins = py::module_::import("builtins");
    py::object const file = builtins.attr("open")(path, "rb");
    py::object const source = file.attr("read")();
    file.attr("close")();
    py::object const code = builtins.attr("compile")(source, path, "exec");
    auto const sys = py::module_::import("sys");
    // What lies beside it can be imported, as with a program.
    std::error_code ignored;
    auto const folder = std::filesystem::absolute(path, ignored).parent_path().string();
    if (!py::bool_(sys.attr("path").attr("__contains__")(folder))) {
        sys.attr("path").attr("insert")(0, folder);
    }
    constexpr char MODULE[] = "zsl_rule";
    py::object const module = py::module_::import("types").attr("ModuleType")(MODULE);
    module.attr("__file__") = path;
    sys.attr("modules")[MODULE] = module;  // data classes look for theirs
    builtins.attr("exec")(code, module.attr("__dict__"));
    py::object choose = py::getattr(module, "choose", py::none());
    if (PyCallable_Check(choose.ptr()) == 0) {
        throw base::InputError(
            fmt::format("--policy {}: expected a function choose(capture, frames)", path));
    }
    try {
        py::module_::import("inspect").attr("signature")(choose).attr("bind")(1, 2);
    } catch (py::error_already_set const& error) {
        throw base::InputError(fmt::format("--policy {}:{}: expected choose(capture, frames): {}",
                                           path, lineOf(choose), messageOf(error)));
    }
    return choose;
}

}  // namespace

bool canRunRules() {
    return true;
}

Rule loadRule(std::string const& path, RuleSettings const& settings) {
    Interpreter::start();
    py::gil_scoped_acquire const gil;
    Rule rule;
    OptionSource source{settings, rule.options};
    struct Loading {
        explicit Loading(OptionSource& options) { OptionSource::current() = &options; }
        ~Loading() { OptionSource::current() = nullptr; }
    } const loading(source);
    try {
        py::object choose = runFile(path);
        rule.policy = std::make_shared<RuleSelector>(path, std::move(choose), settings);
    } catch (py::error_already_set const& error) {
        if (error.matches(PyExc_OSError) && traceOf(error).is_none()) {
            throw base::InputError(
                fmt::format("--policy {}: cannot be read: {}", path,
                            py::str(error.value().attr("strerror")).cast<std::string>()));
        }
        throw base::InputError(
            fmt::format("--policy {}: {}", placeOf(error, path), messageOf(error)));
    }
    return rule;
}

}  // namespace zebcam::tool::script
