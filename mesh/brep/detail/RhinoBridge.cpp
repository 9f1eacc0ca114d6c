#include "mesh/brep/detail/RhinoBridge.h"

#include "core/ResourceManager.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#ifndef TEZ_BREP_BRIDGE_SOURCE
#    define TEZ_BREP_BRIDGE_SOURCE ""
#endif

namespace {

enum Op : uint32_t { OpRead = 1, OpWrite = 2, OpSample = 3 };

[[noreturn]] void Fail(std::string const& message) { throw std::runtime_error("Rhino bridge: " + message); }

bool IsFile(std::string const& path)
{
    struct stat info;
    return !path.empty() && stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

std::string ExecutableFolder()
{
    char buffer[4096];
    ssize_t const n = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    if (n <= 0)
        return "";
    std::string path(buffer, static_cast<size_t>(n));
    size_t const slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

std::string FindScript()
{
    if (char const* forced = std::getenv("TEZ_BREP_BRIDGE"))
        return forced;
    std::vector<std::string> candidates;
    if (TezRef<TezResourceManager> resources = TezResourceManager::GetAppResourceManager())
        candidates.push_back(std::string(resources->GetResourcePath().c_str()) + "media/brep/bridge.js");
    std::string const folder = ExecutableFolder();
    if (!folder.empty()) {
        candidates.push_back(folder + "media/brep/bridge.js");
        candidates.push_back(folder + "../media/brep/bridge.js");
    }
    candidates.push_back(std::string(TEZ_BREP_BRIDGE_SOURCE) + "/bridge.js");
    for (std::string const& candidate : candidates)
        if (IsFile(candidate))
            return candidate;
    Fail("bridge.js not found (set TEZ_BREP_BRIDGE, or install media/brep)");
}

// The node executable, resolved before fork: the child may only exec.
std::string FindNode()
{
    std::string const name = std::getenv("TEZ_NODE") ? std::getenv("TEZ_NODE") : "node";
    if (name.find('/') != std::string::npos)
        return name;
    char const* path = std::getenv("PATH");
    std::string const paths = path ? path : "/usr/local/bin:/usr/bin:/bin";
    size_t start = 0;
    while (start <= paths.size()) {
        size_t const end = std::min(paths.find(':', start), paths.size());
        std::string const candidate = paths.substr(start, end - start) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
        start = end + 1;
    }
    Fail("node not found on PATH (set TEZ_NODE)");
}

double TimeoutSeconds()
{
    if (char const* text = std::getenv("TEZ_BREP_BRIDGE_TIMEOUT")) {
        double const seconds = std::atof(text);
        if (seconds > 0)
            return seconds;
    }
    return 60.0;
}

class Bridge
{
public:
    ~Bridge() { Stop(); }

    std::vector<uint8_t> Call(uint32_t op, std::vector<uint8_t> const& payload)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto const begin = std::chrono::steady_clock::now();
        struct Timing
        {
            Bridge& bridge;
            std::chrono::steady_clock::time_point begin;
            ~Timing()
            {
                bridge.m_seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
            }
        } timing{*this, begin};
        if (m_pid <= 0 || !Alive())
            Start();
        try {
            return Exchange(op, payload);
        } catch (...) {
            Stop();
            throw;
        }
    }

    void Stop()
    {
        if (m_pid <= 0)
            return;
        CloseFd(m_in);
        // The bridge ends when its input closes; a stuck one is killed.
        int status = 0;
        bool ended = false;
        for (int wait = 0; wait < 100 && !ended; ++wait) {
            if (waitpid(m_pid, &status, WNOHANG) == m_pid)
                ended = true;
            else
                usleep(2000);
        }
        if (!ended) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
        }
        CloseFd(m_out);
        CloseFd(m_err);
        m_pid = 0;
    }

    void StopLocked()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Stop();
    }

    int Pid()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_pid > 0 && Alive() ? m_pid : 0;
    }

    double Seconds() const { return m_seconds; }

private:
    static void CloseFd(int& fd)
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

    bool Alive()
    {
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = 0;
            CloseFd(m_in);
            CloseFd(m_out);
            CloseFd(m_err);
            return false;
        }
        return true;
    }

    void Start()
    {
        std::string const script = FindScript();
        std::string const node = FindNode();
        int in[2], out[2], err[2];
        if (pipe2(in, O_CLOEXEC) != 0)
            Fail(std::string("pipe: ") + std::strerror(errno));
        if (pipe2(out, O_CLOEXEC) != 0) {
            close(in[0]), close(in[1]);
            Fail(std::string("pipe: ") + std::strerror(errno));
        }
        if (pipe2(err, O_CLOEXEC) != 0) {
            close(in[0]), close(in[1]), close(out[0]), close(out[1]);
            Fail(std::string("pipe: ") + std::strerror(errno));
        }
        pid_t const parent = getpid();
        char const* argv[] = {node.c_str(), script.c_str(), nullptr};
        pid_t const pid = fork();
        if (pid == 0) {
            // Only async-signal-safe calls from here to exec.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent)
                _exit(127);
            dup2(in[0], 0);
            dup2(out[1], 1);
            dup2(err[1], 2);
            execv(argv[0], const_cast<char* const*>(argv));
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        close(err[1]);
        if (pid < 0) {
            close(in[1]), close(out[0]), close(err[0]);
            Fail(std::string("fork: ") + std::strerror(errno));
        }
        m_pid = pid;
        m_in = in[1];
        m_out = out[0];
        m_err = err[0];
        for (int fd : {m_in, m_out, m_err})
            fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        m_seconds = 0;
        m_stderr.clear();
    }

    // Writes the request and reads the whole reply, draining the bridge's
    // stderr meanwhile (its last bytes go into error messages), all under
    // one deadline.
    std::vector<uint8_t> Exchange(uint32_t op, std::vector<uint8_t> const& payload)
    {
        std::vector<uint8_t> request(8 + payload.size());
        uint32_t const length = static_cast<uint32_t>(payload.size());
        std::memcpy(request.data(), &op, 4);
        std::memcpy(request.data() + 4, &length, 4);
        if (!payload.empty())
            std::memcpy(request.data() + 8, payload.data(), payload.size());

        // A bridge that died makes the write raise SIGPIPE: it is blocked in
        // this thread and taken back off before returning.
        sigset_t pipeSet, oldSet;
        sigemptyset(&pipeSet);
        sigaddset(&pipeSet, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeSet, &oldSet);
        struct RestoreMask
        {
            sigset_t& pipe;
            sigset_t& old;
            ~RestoreMask()
            {
                timespec zero{0, 0};
                while (sigtimedwait(&pipe, nullptr, &zero) > 0) {
                }
                pthread_sigmask(SIG_SETMASK, &old, nullptr);
            }
        } restore{pipeSet, oldSet};

        double const limit = TimeoutSeconds() + 1e-7 * static_cast<double>(payload.size());
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        size_t written = 0;
        std::vector<uint8_t> reply;
        size_t expected = 8;
        uint8_t buffer[1 << 16];
        while (reply.size() < expected) {
            double const left = std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
            if (left <= 0)
                Fail("no reply within " + std::to_string(static_cast<int>(limit)) + " s; the bridge was stopped" +
                     StderrTail());
            pollfd fds[3] = {{m_out, POLLIN, 0}, {m_err, POLLIN, 0}, {m_in, POLLOUT, 0}};
            nfds_t const count = written < request.size() ? 3 : 2;
            int const ready = poll(fds, count, static_cast<int>(std::min(left * 1000.0, 1000.0)) + 1);
            if (ready < 0) {
                if (errno == EINTR)
                    continue;
                Fail(std::string("poll: ") + std::strerror(errno));
            }
            if (count == 3 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
                ssize_t const n = write(m_in, request.data() + written, request.size() - written);
                if (n < 0 && errno != EAGAIN && errno != EINTR)
                    Fail("the bridge ended before taking the request" + StderrTail());
                if (n > 0)
                    written += static_cast<size_t>(n);
            }
            if (fds[1].revents & (POLLIN | POLLHUP)) {
                ssize_t const n = read(m_err, buffer, sizeof(buffer));
                if (n > 0) {
                    m_stderr.append(reinterpret_cast<char*>(buffer), static_cast<size_t>(n));
                    if (m_stderr.size() > 4096)
                        m_stderr.erase(0, m_stderr.size() - 4096);
                }
            }
            if (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) {
                ssize_t const n = read(m_out, buffer, std::min(sizeof(buffer), expected - reply.size()));
                if (n == 0)
                    Fail("the bridge ended without a reply" + StderrTail());
                if (n > 0) {
                    reply.insert(reply.end(), buffer, buffer + n);
                    if (expected == 8 && reply.size() == 8) {
                        uint32_t size = 0;
                        std::memcpy(&size, reply.data() + 4, 4);
                        expected = 8 + static_cast<size_t>(size);
                    }
                }
            }
        }
        uint32_t status = 0;
        std::memcpy(&status, reply.data(), 4);
        std::vector<uint8_t> body(reply.begin() + 8, reply.end());
        if (status != 0)
            throw std::runtime_error("Rhino bridge: " + std::string(body.begin(), body.end()));
        return body;
    }

    std::string StderrTail() const
    {
        if (m_stderr.empty())
            return "";
        std::string tail = m_stderr;
        while (!tail.empty() && (tail.back() == '\n' || tail.back() == '\r'))
            tail.pop_back();
        size_t const line = tail.rfind('\n');
        return " (" + (line == std::string::npos ? tail : tail.substr(line + 1)) + ")";
    }

    std::mutex m_mutex;
    pid_t m_pid = 0;
    int m_in = -1, m_out = -1, m_err = -1;
    std::string m_stderr;
    double m_seconds = 0;
};

Bridge& TheBridge()
{
    static Bridge bridge;
    return bridge;
}

// ---- reading the reply of a read ----

class Reader
{
public:
    Reader(uint8_t const* data, size_t size) : m_data(data), m_size(size) {}

    template <class T>
    T Get()
    {
        Need(sizeof(T));
        T value;
        std::memcpy(&value, m_data + m_position, sizeof(T));
        m_position += sizeof(T);
        return value;
    }
    int32_t Int() { return Get<int32_t>(); }
    double Double() { return Get<double>(); }
    // A count of items of at least `itemSize` bytes each, checked against
    // what is left, so that a corrupt count cannot allocate without bound.
    size_t Count(size_t itemSize)
    {
        uint32_t const n = Get<uint32_t>();
        if (itemSize > 0 && n > (m_size - m_position) / itemSize)
            Fail("corrupt reply (a count of " + std::to_string(n) + " overruns it)");
        return n;
    }
    bool AtEnd() const { return m_position == m_size; }
    size_t Remaining() const { return m_size - m_position; }

private:
    void Need(size_t n)
    {
        if (m_size - m_position < n)
            Fail("corrupt reply (truncated)");
    }
    uint8_t const* m_data;
    size_t m_size;
    size_t m_position = 0;
};

std::vector<double> Knots(Reader& reader)
{
    size_t const n = reader.Count(8);
    std::vector<double> knots(n);
    for (double& k : knots)
        k = reader.Double();
    for (size_t i = 1; i < n; ++i)
        if (!(knots[i] >= knots[i - 1]))
            Fail("corrupt reply (knots not ascending)");
    return knots;
}

TezBrepCurve DecodeCurve(Reader& reader)
{
    int const degree = reader.Int();
    size_t const count = reader.Count(32);
    std::vector<double> const knots = Knots(reader);
    if (degree < 1 || degree > 8 || count < static_cast<size_t>(degree) + 1 || knots.size() != count + degree + 1)
        Fail("corrupt reply (a curve of degree " + std::to_string(degree) + " with " + std::to_string(count) +
             " points and " + std::to_string(knots.size()) + " knots)");
    std::vector<TezVector3<double>> points(count);
    std::vector<double> weights(count);
    for (size_t i = 0; i < count; ++i) {
        points[i].x = reader.Double();
        points[i].y = reader.Double();
        points[i].z = reader.Double();
        weights[i] = reader.Double();
    }
    TezBrepCurve curve;
    curve.Initialize(degree, points, weights, knots);
    return curve;
}

void DecodeSurface(Reader& reader, TezNurbsSurface3<double>& surface)
{
    int const degreeU = reader.Int(), degreeV = reader.Int();
    size_t const nu = reader.Count(0), nv = reader.Count(0);
    std::vector<double> const ku = Knots(reader);
    std::vector<double> const kv = Knots(reader);
    if (degreeU < 1 || degreeV < 1 || degreeU > 8 || degreeV > 8 || nu < static_cast<size_t>(degreeU) + 1 ||
        nv < static_cast<size_t>(degreeV) + 1 || ku.size() != nu + degreeU + 1 || kv.size() != nv + degreeV + 1 ||
        nu * nv > reader.Remaining() / 32)
        Fail("corrupt reply (a surface of degrees " + std::to_string(degreeU) + ", " + std::to_string(degreeV) +
             " with " + std::to_string(nu) + " x " + std::to_string(nv) + " points)");
    surface.Initialize(static_cast<int>(nu), static_cast<int>(nv), degreeU, degreeV);
    for (size_t i = 0; i < ku.size(); ++i)
        surface.SetKnotU(static_cast<int>(i), ku[i]);
    for (size_t i = 0; i < kv.size(); ++i)
        surface.SetKnotV(static_cast<int>(i), kv[i]);
    for (size_t i = 0; i < nu; ++i) {
        for (size_t j = 0; j < nv; ++j) {
            TezVector3<double> p;
            p.x = reader.Double();
            p.y = reader.Double();
            p.z = reader.Double();
            surface.SetControlPoint(static_cast<int>(i), static_cast<int>(j), p);
            surface.SetWeight(static_cast<int>(i), static_cast<int>(j), reader.Double());
        }
    }
}

std::vector<uint8_t> WithVersion(int version, uint8_t const* data, size_t size)
{
    std::vector<uint8_t> payload(4 + size);
    int32_t const v = version;
    std::memcpy(payload.data(), &v, 4);
    if (size)
        std::memcpy(payload.data() + 4, data, size);
    return payload;
}

} // namespace

namespace TezRhinoBridge {

TezBrepModel DecodeModel(uint8_t const* data, size_t size)
{
    Reader reader(data, size);
    TezBrepModel model;
    model.archiveVersion = reader.Int();
    model.valid = reader.Int() != 0;
    model.tolerance = reader.Double();
    if (!(model.tolerance >= 0 && model.tolerance < 1e30))
        Fail("corrupt reply (a tolerance of " + std::to_string(model.tolerance) + ")");
    model.numBreps = reader.Int();
    model.numInstanceDefinitionObjects = reader.Int();
    model.numBrepsInInstanceDefinitions = reader.Int();
    model.numInstanceReferences = reader.Int();
    model.numNonBreps = reader.Int();
    size_t const numBreps = reader.Count(16 * 8 + 12);
    model.breps.resize(numBreps);
    for (TezBrepModelBrep& brep : model.breps) {
        brep.tolerance = model.tolerance;
        for (double& m : brep.transform)
            m = reader.Double();
        brep.vertices.resize(reader.Count(24));
        for (TezVector3<double>& v : brep.vertices) {
            v.x = reader.Double();
            v.y = reader.Double();
            v.z = reader.Double();
        }
        brep.edges.resize(reader.Count(48));
        for (TezBrepCurve& edge : brep.edges)
            edge = DecodeCurve(reader);
        brep.faces.resize(reader.Count(64));
        for (TezBrepModelFace& face : brep.faces) {
            face.reversed = reader.Int() != 0;
            DecodeSurface(reader, face.surface);
            face.edges.resize(reader.Count(4));
            for (int& e : face.edges) {
                e = reader.Int();
                if (e < 0 || e >= static_cast<int>(brep.edges.size()))
                    Fail("corrupt reply (edge " + std::to_string(e) + " of a face out of range)");
            }
        }
    }
    if (!reader.AtEnd())
        Fail("corrupt reply (bytes after the last brep)");
    return model;
}

std::vector<uint8_t> ReadReply(std::vector<uint8_t> const& bytes) { return TheBridge().Call(OpRead, bytes); }

TezBrepModel Read(std::vector<uint8_t> const& bytes)
{
    std::vector<uint8_t> const reply = ReadReply(bytes);
    return DecodeModel(reply.data(), reply.size());
}

std::vector<uint8_t> Write(std::vector<uint8_t> const& bytes, int version)
{
    return TheBridge().Call(OpWrite, WithVersion(version, bytes.data(), bytes.size()));
}

std::vector<uint8_t> Sample(std::string const& name, int version)
{
    return TheBridge().Call(OpSample, WithVersion(version, reinterpret_cast<uint8_t const*>(name.data()), name.size()));
}

void Begin() {}

void End() { TheBridge().StopLocked(); }

int ProcessId() { return TheBridge().Pid(); }

double SecondsInBridge() { return TheBridge().Seconds(); }

} // namespace TezRhinoBridge
