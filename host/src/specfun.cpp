// Host special functions on Boost.Math, with a policy that never throws and
// the limits at a = 0, x = 0, x = 1 and x = inf spelled out.
#include <cmath>
#include <limits>

#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/gamma.hpp>

#include "host/specfun.hpp"

namespace {

using namespace boost::math::policies;
using QuietPolicy = policy<domain_error<ignore_error>, pole_error<ignore_error>,
                           overflow_error<ignore_error>, evaluation_error<ignore_error>,
                           rounding_error<ignore_error>, promote_double<false>>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

double tailOf(double lower, double upper, specfun::TailType tail) {
    return tail == specfun::Upper ? upper : lower;
}

}  // namespace

double specfun::gammainc(double x, double a, TailType tail) {
    if (std::isnan(x) || std::isnan(a) || x < 0 || a < 0) return kNaN;
    if (a == kInf) return x == kInf ? kNaN : tailOf(0.0, 1.0, tail);
    if (a == 0) return tailOf(1.0, 0.0, tail);  // the limit for x > 0; also taken at x = 0
    if (x == 0) return tailOf(0.0, 1.0, tail);
    if (x == kInf) return tailOf(1.0, 0.0, tail);
    return tail == Upper ? boost::math::gamma_q(a, x, QuietPolicy())
                         : boost::math::gamma_p(a, x, QuietPolicy());
}

double specfun::betainc(double x, double a, double b, TailType tail) {
    if (std::isnan(x) || std::isnan(a) || std::isnan(b) || x < 0 || x > 1 || a < 0 || b < 0)
        return kNaN;
    if (a == 0 && b == 0) return kNaN;
    if (x == 0) return tailOf(0.0, 1.0, tail);
    if (x == 1) return tailOf(1.0, 0.0, tail);
    if (a == 0) return tailOf(1.0, 0.0, tail);
    if (b == 0) return tailOf(0.0, 1.0, tail);
    if (a == kInf || b == kInf) {
        if (a == kInf && b == kInf) return kNaN;
        return a == kInf ? tailOf(0.0, 1.0, tail) : tailOf(1.0, 0.0, tail);
    }
    return tail == Upper ? boost::math::ibetac(a, b, x, QuietPolicy())
                         : boost::math::ibeta(a, b, x, QuietPolicy());
}

double specfun::gammaln(double x) {
    if (std::isnan(x)) return kNaN;
    if (std::isinf(x)) return kInf;
    if (x <= 0 && x == std::floor(x)) return kInf;  // poles
    int sign = 0;
    return boost::math::lgamma(x, &sign, QuietPolicy());
}
