// Runs one request of an export on a thread of its own and waits for its end, without a time-out.
// A stack walk must not run on the thread that it walks, and no worker is kept between requests.
#pragma once

#include <windows.h>

#include <boost/bind/bind.hpp>
#include <boost/thread/thread.hpp>

#include <exception>

namespace corvane {

template <class Request>
using WorkerEntry = HRESULT (*)(Request* request);

// What the worker throws is thrown to the caller; a thread that cannot be started is a
// boost::thread_resource_error.
template <class Request>
void run_worker(WorkerEntry<Request> entry, Request& request) {
    struct Guarded {
        static void run(WorkerEntry<Request> entry, Request* request, std::exception_ptr* error) {
            try {
                entry(request);
            } catch (...) {
                *error = std::current_exception();
            }
        }
    };
    std::exception_ptr error;
    boost::thread worker(boost::bind(&Guarded::run, entry, &request, &error));
    worker.join();
    if (error) {
        std::rethrow_exception(error);
    }
}

} // namespace corvane
