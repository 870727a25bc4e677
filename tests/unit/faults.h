#ifndef TAVROFUSE_TESTS_UNIT_FAULTS_H_
#define TAVROFUSE_TESTS_UNIT_FAULTS_H_

/// Makes a system call of the library fail, from the next call on, until it goes out of scope. The
/// linker sends the calls that faults.cpp names there.
class Fault {
 public:
  Fault(const char* call, int error);
  ~Fault();
  bool HasHappened() const;
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;
};

#endif  // TAVROFUSE_TESTS_UNIT_FAULTS_H_
