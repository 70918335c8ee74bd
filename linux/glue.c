// SPDX-License-Identifier: GPL-2.0
/*
 * What the kernel has as a macro or an inline function, as functions that the core can call. What the
 * kernel exports is called straight by its name; this file is also the one that knows where Linux 6.1
 * differs from older names.
 */
#include <linux/bottom_half.h>
#include <linux/bug.h>
#include <linux/jiffies.h>
#include <linux/lockdep.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/netdevice.h>
#include <linux/percpu.h>
#include <linux/preempt.h>
#include <linux/printk.h>
#include <linux/ratelimit.h>
#include <linux/sched.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/workqueue.h>

#include "glue.h"

#if HZ != 100
#error "times in the core are jiffies of 10 ms: build the kernel with CONFIG_HZ=100"
#endif

unsigned int tarn_k_preempt_count(void)
{
	return preempt_count();
}

const void *tarn_k_current(void)
{
	return current;
}

void tarn_k_local_bh_disable(void)
{
	local_bh_disable();
}

void tarn_k_local_bh_enable(void)
{
	local_bh_enable();
}

void tarn_k_rwlock_init(void *lock, const char *name, void *key)
{
#ifdef CONFIG_DEBUG_SPINLOCK
	__rwlock_init(lock, name, key);
#else
	*(rwlock_t *)lock = (rwlock_t)__RW_LOCK_UNLOCKED(lock);
#endif
}

int tarn_k_rwlock_is_held(const void *lock)
{
#ifdef CONFIG_LOCKDEP
	return lockdep_is_held((const rwlock_t *)lock);
#else
	return 1;
#endif
}

void tarn_k_lockdep_warn(const char *file, int line)
{
#ifdef CONFIG_LOCKDEP
	WARN(debug_locks, "tarnfwd: without its lock at %s:%d\n", file, line);
#endif
}

void tarn_k_ratelimit_init(void *state, int interval, int burst)
{
	ratelimit_state_init(state, interval, burst);
}

/* A word of the limiter, under its lock; 0 when somebody has that. */
int tarn_k_ratelimit_try_store(void *state, int *word, int value)
{
	struct ratelimit_state *limiter = state;
	unsigned long flags;

	if (!raw_spin_trylock_irqsave(&limiter->lock, flags))
		return 0;
	WRITE_ONCE(*word, value);
	raw_spin_unlock_irqrestore(&limiter->lock, flags);
	return 1;
}

void tarn_k_bug(const char *file, int line)
{
	pr_crit("tarnfwd: broken invariant at %s:%d\n", file, line);
	BUG();
}

unsigned int tarn_k_skb_tailroom(const struct sk_buff *skb)
{
	return skb_tailroom(skb);
}

int tarn_k_skb_cloned(const struct sk_buff *skb)
{
	return skb_cloned(skb);
}

void tarn_k_skb_reserve(struct sk_buff *skb, unsigned int length)
{
	skb_reserve(skb, length);
}

void tarn_k_skb_orphan(struct sk_buff *skb)
{
	skb_orphan(skb);
}

void tarn_k_consume_skb(struct sk_buff *skb)
{
	consume_skb(skb);
}

void tarn_k_work_init(void *work, void (*run)(void *work))
{
	INIT_WORK((struct work_struct *)work, (work_func_t)run);
}

int tarn_k_schedule_work_unbound(void *work)
{
	return queue_work_on(WORK_CPU_UNBOUND, system_wq, work);
}

void tarn_k_mutex_init(void *lock, const char *name, void *key)
{
	__mutex_init(lock, name, key);
}

/* A macro where locks are proved. */
void tarn_k_mutex_lock(void *lock)
{
	mutex_lock(lock);
}

void tarn_k_mutex_unlock(void *lock)
{
	mutex_unlock(lock);
}

/* --- memory -------------------------------------------------------------------------------------- */

struct kmem_cache *tarn_k_kmem_cache_create(const char *name, unsigned int size, unsigned int align,
					    unsigned int flags, void (*constructor)(void *object))
{
	if (IS_ENABLED(CONFIG_DEBUG_KMEMLEAK))
		flags &= ~(__force unsigned int)SLAB_NOLEAKTRACE;
	return kmem_cache_create(name, size, align, (__force slab_flags_t)flags, constructor);
}

/* --- words of each CPU ---------------------------------------------------------------------------- */

/* The core names them by a pointer like any other. */
static u32 __percpu *of_cpus(const unsigned int *word)
{
	return (u32 __percpu __force *)word;
}

void tarn_k_this_cpu_add(unsigned int *word, unsigned int more)
{
	this_cpu_add(*of_cpus(word), more);
}

unsigned int tarn_k_percpu_sum(const unsigned int *word)
{
	unsigned int sum = 0;
	int cpu;

	for_each_possible_cpu(cpu)
		sum += READ_ONCE(*per_cpu_ptr(of_cpus(word), cpu));
	return sum;
}

unsigned long long tarn_k_this_cpu_add_return(void *word, unsigned long long more)
{
	return this_cpu_add_return(*(u64 __percpu __force *)word, more);
}

unsigned long long tarn_k_this_cpu_read(void *word)
{
	return this_cpu_read(*(u64 __percpu __force *)word);
}

void tarn_k_this_cpu_write(void *word, unsigned long long value)
{
	this_cpu_write(*(u64 __percpu __force *)word, value);
}
