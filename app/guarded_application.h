#pragma once
// An application object whose event loop survives no exception silently: one
// escaping an event handler, a slot or a task handed to the main thread ends
// the loop with exit code 1 after one line on standard error, instead of an
// abort.

#include <QCoreApplication>

#include <iostream>
#include <new>
#include <optional>
#include <string>

#include "platform/text_line.h"

namespace pv {

// What stopped a guarded event loop, whichever Qt application class runs it.
class LoopFailure {
public:
    virtual ~LoopFailure() = default;
    // What stopped the loop, once it has.
    const std::optional<std::string>& failure() const { return failure_; }

protected:
    std::optional<std::string> failure_;
};

template <class Base>
class GuardedApplication : public Base, public LoopFailure {
public:
    // `name` starts the line: "plenavue capture: stopped: X display connection lost".
    GuardedApplication(int& argc, char** argv, std::string name) : Base(argc, argv), name_(std::move(name)) {}

    bool notify(QObject* receiver, QEvent* event) override {
        try {
            return Base::notify(receiver, event);
        } catch (const std::bad_alloc&) {
            stop("out of memory");
        } catch (const std::exception& e) {
            stop(e.what());
        } catch (...) {
            stop("an unknown error");
        }
        return false;
    }

private:
    void stop(const std::string& reason) {
        if (!failure_) {
            failure_ = reason;
            std::cerr << name_ << ": stopped: " << oneLine(reason) << std::endl;
        }
        Base::exit(1);
    }

    std::string name_;
};

}  // namespace pv
