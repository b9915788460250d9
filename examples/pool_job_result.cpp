// pool_job_result: slow work handed to the thread pool, and its results collected.
//
// A worker deletes each job after Run(), so a result cannot be left in the job. Here each job carries the
// promise half of a std::promise/std::future pair and the caller keeps the future: the caller is free
// until it needs a result, and a bounded wait turns a job that never ran into an error, not a hang.
#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "Logger.h"
#include "MD5.h"
#include "ThreadPool.h"

namespace {

// The MD5 of `megabytes` MiB of generated data: the stand-in for work too slow for the caller's thread.
class DigestJob : public zor::CJob {
public:
    DigestJob(ZR_Uint32 megabytes, std::promise<std::string> result)
        : zor::CJob("digest", nullptr), m_megabytes(megabytes), m_result(std::move(result)) {}

    void Run() override {
        std::vector<ZR_BYTE> block(1024 * 1024);
        zor::MD5 md5;
        for (ZR_Uint32 i = 0; i < m_megabytes; ++i) {
            for (size_t j = 0; j < block.size(); ++j) block[j] = static_cast<ZR_BYTE>(i + j * 7);
            md5.Append(block.data(), static_cast<ZR_Uint32>(block.size()));
        }
        m_result.set_value(md5.ToString());  // hands the result over; the worker deletes the job next
    }

private:
    ZR_Uint32 m_megabytes;
    std::promise<std::string> m_result;
};

}  // namespace

int main() {
    // The pool logs, so the logger comes first and goes last. Level 5 hides its debug lines.
    zor::Logger::Instance()->Initialize("pool", "./logs/pool_job_result.log", 1, 100000, 5, 0, 0);
    zor::CThreadPool* pool = zor::CThreadPool::GetInstance();
    pool->Initialize();

    std::vector<std::future<std::string>> digests;
    for (ZR_Uint32 megabytes = 4; megabytes <= 32; megabytes *= 2) {
        std::promise<std::string> promise;
        digests.push_back(promise.get_future());
        pool->PushJob(new DigestJob(megabytes, std::move(promise)));  // the pool runs and deletes it
    }
    // ... the caller does other work here ...
    int missing = 0;
    for (std::future<std::string>& digest : digests) {
        if (digest.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
            ++missing;
            continue;
        }
        std::printf("md5 = %s\n", digest.get().c_str());
    }

    zor::CThreadPool::DeleteInstance();  // waits for running jobs; jobs still queued stay the caller's
    zor::Logger::DestroyInstance();
    if (missing > 0) std::fprintf(stderr, "%d jobs did not finish in time\n", missing);
    return missing == 0 ? 0 : 1;
}
